#include "LibService/LibServiceAPI.h"

#include <algorithm>

#include "LibService/MessageIds.h"
#include "LibService/api/ServiceApiMessages.h"
#include "platform/Text.h"

namespace quorbel {

using namespace service_api;

namespace {

/// After a failure to make the pipe or to take a connection, for want of descriptors for instance.
constexpr std::chrono::milliseconds kRetryPause{100};

/// Between a record that somebody waits for and the answer.
constexpr std::chrono::milliseconds kGatheringPause{20};

constexpr std::size_t kMostData = CPipeConnection::kMostMessage - kReplyHead - kReplyTail;

void PutEntry(const CTraceEntry& entry, std::uint64_t key, std::vector<std::uint8_t>& data) {
    const std::size_t begin = data.size();
    data.resize(begin + kEntrySize);
    const auto place = std::span(data).subspan(begin);
    Put(place, 0, entry.number, 8);
    Put(place, 8, entry.time, 8);
    Put(place, 16, entry.id, 4);
    Put(place, 24, key, 8);
    Put(place, 32, entry.arguments.size(), 4);
    data.insert(data.end(), entry.arguments.begin(), entry.arguments.end());
}

/// Adds the records of a block from `next` on while there is room, and moves `next` past them. False when the
/// room is at its end.
bool PutEntries(const CTraceSnapshot& snapshot, std::size_t room, CSharedMemory::CShare& share,
                std::uint64_t& next, std::vector<std::uint8_t>& data) {
    CTraceImageReader reader(snapshot.block.image, snapshot.block.first);
    while (const auto entry = reader.Next()) {
        if (entry->number < next) continue;
        const std::size_t size = data.size() + kEntrySize + entry->arguments.size();
        if (size >= room || !share.MayHold(size)) return false;
        PutEntry(*entry, snapshot.objects[entry->object], data);
        next = entry->number + 1;
    }
    return true;
}

}  // namespace

bool CSharedMemory::CShare::MayHold(std::size_t bytes) noexcept {
    m_asked = bytes;
    if (bytes <= kUsual + m_taken) return true;
    const std::size_t more = std::max(bytes - kUsual - m_taken, kUsual);
    if (m_memory.m_taken.fetch_add(more) + more > kMost) {
        m_memory.m_taken -= more;
        return false;
    }
    m_taken += more;
    return true;
}

struct CServiceAPIConnection::CRequest {
    Bytes& message;
    std::uint64_t id;
    std::uint32_t code;
    std::size_t room;

    std::span<std::uint8_t> DataArea() const noexcept { return std::span(message).subspan(kDataArea); }
};

CServiceAPIConnection::CServiceAPIConnection(std::shared_ptr<CServiceAPIContext> context,
                                             std::unique_ptr<CPipeConnection> pipe)
    : m_context(std::move(context)), m_pipe(std::move(pipe)) {
    ++m_context->connections;
}

CServiceAPIConnection::~CServiceAPIConnection() {
    --m_context->connections;
}

/// What ended the connection, when it is a failure of ours.
CStatus CServiceAPIConnection::Ended(ErrorCode error) {
    m_isDisconnected = true;
    const bool isUsual = error == ErrorCode::BrokenPipe || error == ErrorCode::Cancelled ||
                         error == ErrorCode::FileTooLarge || error == ErrorCode::NotEnoughMemory;
    return isUsual ? CStatus() : SystemError(error);
}

CStatus CServiceAPIConnection::Serve(CEvent& stop) {
    while (!m_isDisconnected) {
        CSharedMemory::CShare share(m_context->memory);
        try {
            RETURN_IF_FAILED(ServeOne(share, stop));
        } catch (const std::bad_alloc&) {
            return AllocationError(share.Asked());
        }
    }
    return {};
}

CStatus CServiceAPIConnection::ServeOne(CSharedMemory::CShare& share, CEvent& stop) {
    auto message = m_pipe->ReadMessage(stop, [&share](std::size_t size) { return share.MayHold(size); });
    if (!message.IsOk()) return Ended(message.Error());
    return Answer(message.Value(), share, stop);
}

CStatus CServiceAPIConnection::Answer(Bytes& message, CSharedMemory::CShare& share, CEvent& stop) {
    if (!m_isAdministrator) {
        const auto isAdministrator = m_pipe->PeerIsAdministrator(m_context->administrators);
        if (!isAdministrator.IsOk()) return Ended(isAdministrator.Error());
        m_isAdministrator = isAdministrator.Value();
    }
    if (message.size() < kSmallestRequest) return {};
    if (message.size() - kSmallestRequest != Get(message, kInputLength, 4)) return {};
    CRequest request{
        message, Get(message, kRequestId, 8), static_cast<std::uint32_t>(Get(message, kControlCode, 4)),
        static_cast<std::size_t>(std::min<std::uint64_t>(Get(message, kOutputLength, 4), kMostData))};
    if ((request.code & kAdministratorBit) != 0 && !*m_isAdministrator)
        return Reply(request, kAccessDenied, {}, 0, stop);
    return Dispatch(request, share, stop);
}

CStatus CServiceAPIConnection::Dispatch(CRequest& request, CSharedMemory::CShare& share, CEvent& stop) {
    if (request.code == static_cast<std::uint32_t>(ControlCode::ReadRecords))
        return AnswerRecords(request, share, stop);
    if (request.code == static_cast<std::uint32_t>(ControlCode::ObjectName)) return AnswerName(request, stop);
    const auto area = request.DataArea();
    const std::size_t held = std::min(request.room, area.size());
    return Reply(request, kInvalidParameter, area.first(held), request.room - held, stop);
}

CStatus CServiceAPIConnection::AnswerRecords(const CRequest& request, CSharedMemory::CShare& share,
                                             CEvent& stop) {
    const CServiceLogger& trace = m_context->trace;
    const auto area = request.DataArea();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(Get(area, kWaitTime, 4));
    std::uint64_t oldest = trace.OldestRecord();
    std::uint64_t next = std::max(Get(area, kFirstRecord, 8), oldest);
    Bytes data(kEntries);
    for (;;) {
        const auto snapshot = trace.ReadBlock(next);
        if (snapshot && !PutEntries(*snapshot, request.room, share, next, data)) break;
        if (snapshot) continue;
        if (data.size() > kEntries) break;
        if (const std::uint64_t now = trace.OldestRecord(); now > oldest) {
            next = oldest = now;
            continue;
        }
        const auto arrived = AwaitRecord(next, end, stop);
        if (!arrived.IsOk()) return Ended(arrived.Error());
        if (!arrived.Value()) break;
    }
    Put(data, 0, trace.NextRecord(), 8);
    return Reply(request, 0, data, 0, stop);
}

/// True when a record arrived, which need not be the one that is waited for.
CResult<bool> CServiceAPIConnection::AwaitRecord(std::uint64_t number,
                                                 std::chrono::steady_clock::time_point end, CEvent& stop) {
    const auto arrives = m_context->trace.RecordArrives(number);
    if (!arrives.IsOk()) return arrives.Error();
    if (!arrives.Value()) return true;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    const auto arrived = m_pipe->WaitFor(*arrives.Value(), stop, std::max(left, left.zero()));
    // Records come in crowds, and each reader copies a block: it takes several at a time.
    if (arrived.IsOk() && arrived.Value()) WaitUntilSet(stop, kGatheringPause);
    return arrived;
}

CStatus CServiceAPIConnection::AnswerName(CRequest& request, CEvent& stop) {
    const auto area = request.DataArea();
    const auto name = m_context->trace.ObjectName(Get(area, kObjectKey, 8));
    CStatus status;
    if (name) {
        const auto place = area.subspan(kObjectName, kObjectNameSize);
        std::fill(place.begin(), place.end(), std::uint8_t{0});
        std::copy_n(name->begin(), std::min(name->size(), place.size()), place.begin());
    } else {
        status = MessageError(message::kUnknownObjectKey, {L"COOKIE"});
    }
    const std::size_t held = std::min(request.room, area.size());
    const std::uint32_t code = status.IsOk() ? 0 : status.Error()->GetCode();
    return Reply(request, code, area.first(held), request.room - held, stop);
}

CStatus CServiceAPIConnection::Reply(const CRequest& request, std::uint32_t status,
                                     std::span<const std::uint8_t> data, std::size_t zeros, CEvent& stop) {
    std::array<std::uint8_t, kReplyHead> head{};
    Put(head, 0, request.id, 8);
    Put(head, 8, status, 4);
    Put(head, 12, data.size() + zeros, 4);
    static constexpr std::array<std::uint8_t, kReplyTail> kTail{};
    const ErrorCode error = m_pipe->WriteMessage({head, data}, stop, zeros, kTail);
    return error == ErrorCode::Success ? CStatus() : Ended(error);
}

CServiceAPIListener::CServiceAPIListener(const std::filesystem::path& pipes, std::wstring_view serviceName,
                                         std::string administrators, const CServiceLogger& trace,
                                         IClock& clock, Starter starter)
    : m_pipes(pipes),
      m_name(PipeName(serviceName)),
      m_clock(clock),
      m_starter(std::move(starter)),
      m_context(std::make_shared<CServiceAPIContext>(trace, std::move(administrators))) {}

CStatus CServiceAPIListener::Run(CEvent& stop) {
    std::unique_ptr<CNamedPipe> pipe;
    for (bool isFailing = false; !stop.Test();) {
        try {
            CStatus status = pipe ? AcceptOne(*pipe, stop) : Create(pipe);
            const bool wasFailing = std::exchange(isFailing, !status.IsOk());
            if (isFailing && !wasFailing) status.Report();
        } catch (const std::bad_alloc&) {
            isFailing = true;
        }
        if (isFailing) m_clock.Pause(kRetryPause, stop);
    }
    return {};
}

CStatus CServiceAPIListener::Create(std::unique_ptr<CNamedPipe>& pipe) const {
    auto created = CNamedPipe::Create(m_pipes, m_name);
    if (!created.IsOk()) return SystemError(created.Error(), FromUtf8(m_name));
    pipe = std::move(created).Value();
    return {};
}

CStatus CServiceAPIListener::AcceptOne(CNamedPipe& pipe, CEvent& stop) {
    auto connection = pipe.Accept(stop);
    if (connection.IsOk()) return Begin(std::move(connection).Value());
    if (connection.Error() == ErrorCode::Cancelled) return {};
    return SystemError(connection.Error(), FromUtf8(m_name));
}

/// A connection beyond the limit is closed at once.
CStatus CServiceAPIListener::Begin(std::unique_ptr<CPipeConnection> pipe) {
    const int others = m_context->connections;
    if (others >= kMostConnections) return {};
    if (others >= kMostConnections - kReserved) {
        const auto isAdministrator = pipe->PeerIsAdministrator(m_context->administrators);
        if (!isAdministrator.IsOk() || !isAdministrator.Value()) return {};
    }
    return m_starter(std::make_unique<CServiceAPIConnection>(m_context, std::move(pipe)));
}

}  // namespace quorbel
