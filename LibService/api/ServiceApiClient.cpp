#include "LibService/api/ServiceApiClient.h"

#include <algorithm>

#include "LibService/api/ServiceApiMessages.h"
#include "platform/pipe/NamedPipe.h"

namespace quorbel {

namespace {

using namespace service_api;
using Bytes = std::vector<std::uint8_t>;

/// Room for the records of one answer.
constexpr std::size_t kRecordsRoom = 64 << 10;

class CPipeClient final : public CServiceApiClient {
 public:
    explicit CPipeClient(std::unique_ptr<CPipeConnection> pipe) noexcept : m_pipe(std::move(pipe)) {}

    CResult<CServiceRecords> ReadRecords(std::uint64_t first, std::chrono::milliseconds wait,
                                         CEvent& stop) override {
        Bytes request = NewRequest(ControlCode::ReadRecords, kRecordsRoom);
        const auto area = std::span(request).subspan(kDataArea);
        Put(area, kFirstRecord, first, 8);
        constexpr std::chrono::milliseconds kLongest(0xFFFFFFFF);
        Put(area, kWaitTime, static_cast<std::uint64_t>(std::clamp(wait, wait.zero(), kLongest).count()), 4);
        const auto answer = Ask(request, stop);
        if (!answer.IsOk()) return answer.Error();
        return ParseRecords(answer.Value());
    }

    CResult<std::string> ObjectName(std::uint64_t key, CEvent& stop) override {
        Bytes request = NewRequest(ControlCode::ObjectName, kObjectName + kObjectNameSize);
        Put(std::span(request).subspan(kDataArea), kObjectKey, key, 8);
        const auto answer = Ask(request, stop);
        if (!answer.IsOk()) return answer.Error();
        if (answer.Value().size() < kObjectName + kObjectNameSize) return ErrorCode::InvalidData;
        const auto name = std::span(answer.Value()).subspan(kObjectName, kObjectNameSize);
        const auto end = std::find(name.begin(), name.end(), 0);
        if (end == name.begin()) return ErrorCode::NotFound;
        return std::string(name.begin(), end);
    }

 private:
    Bytes NewRequest(ControlCode code, std::size_t room) {
        Bytes request(kSmallestRequest);
        Put(request, kRequestId, ++m_lastRequest, 8);
        Put(request, kControlCode, static_cast<std::uint32_t>(code), 4);
        Put(request, kOutputLength, room, 4);
        return request;
    }

    /// The data of the answer to a request.
    CResult<Bytes> Ask(const Bytes& request, CEvent& stop) {
        const ErrorCode sent = m_pipe->WriteMessage({request}, stop);
        if (sent != ErrorCode::Success) return sent;
        auto reply = m_pipe->ReadMessage(stop);
        if (!reply.IsOk()) return reply.Error();
        Bytes bytes = std::move(reply).Value();
        if (bytes.size() < kReplyHead + kReplyTail) return ErrorCode::InvalidData;
        const bool isOurs = Get(bytes, 0, 8) == m_lastRequest;
        const std::uint64_t length = Get(bytes, 12, 4);
        if (!isOurs || length != bytes.size() - kReplyHead - kReplyTail) return ErrorCode::InvalidData;
        const auto status = static_cast<ErrorCode>(Get(bytes, 8, 4));
        if (status != ErrorCode::Success) return status;
        return Bytes(bytes.begin() + kReplyHead, bytes.end() - kReplyTail);
    }

    static CResult<CServiceRecords> ParseRecords(std::span<const std::uint8_t> data) {
        if (data.size() < kEntries) return ErrorCode::InvalidData;
        CServiceRecords result{{}, Get(data, 0, 8)};
        for (data = data.subspan(kEntries); !data.empty();) {
            if (data.size() < kEntrySize) return ErrorCode::InvalidData;
            const std::size_t length = Get(data, 32, 4);
            if (data.size() - kEntrySize < length) return ErrorCode::InvalidData;
            const auto arguments = data.subspan(kEntrySize, length);
            result.records.push_back({Get(data, 0, 8),
                                      Get(data, 8, 8),
                                      static_cast<std::uint32_t>(Get(data, 16, 4)),
                                      Get(data, 24, 8),
                                      {arguments.begin(), arguments.end()}});
            data = data.subspan(kEntrySize + length);
        }
        return result;
    }

    const std::unique_ptr<CPipeConnection> m_pipe;
    std::uint64_t m_lastRequest = 0;
};

}  // namespace

CResult<std::unique_ptr<CServiceApiClient>> CServiceApiClient::Connect(const std::filesystem::path& root,
                                                                       std::wstring_view serviceName) {
    auto pipe = CPipeConnection::Connect(root / "pipe", PipeName(serviceName));
    if (!pipe.IsOk()) return pipe.Error();
    return Over(std::move(pipe).Value());
}

std::unique_ptr<CServiceApiClient> CServiceApiClient::Over(std::unique_ptr<CPipeConnection> pipe) {
    return std::make_unique<CPipeClient>(std::move(pipe));
}

}  // namespace quorbel
