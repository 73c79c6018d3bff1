#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <span>
#include <sys/socket.h>
#include <thread>

#include "LibService/LibServiceAPI.h"
#include "LibService/api/ServiceApiClient.h"

namespace quorbel {

namespace {

using Bytes = std::span<const std::uint8_t>;

/// A service's records, of an object with a name.
class CTracedService final : public CTraceLoggable {
 public:
    CTracedService() {
        for (std::uint32_t id : {0x00010000U, 0x00010001U, 0xC0010002U}) m_trace.Trace(*this, id);
    }
    const char* TraceName() const override { return "A name of many letters"; }
    const CServiceLogger& Trace() const noexcept { return m_trace; }

 private:
    CServiceLogger m_trace;
};

/// The other end of a connection: sends bytes and nothing more, and takes all that comes.
class CPeer {
 public:
    explicit CPeer(Bytes bytes) {
        std::array<int, 2> ends{-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) std::abort();
        ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
        m_near = std::make_unique<CPipeConnection>(CFileDescriptor(ends[0]));
        m_far = CFileDescriptor(ends[1]);
        m_thread = std::jthread([this, bytes] { Play(bytes); });
    }
    /// To be destroyed before the peer, which else waits for what comes.
    std::unique_ptr<CPipeConnection> TakeConnection() { return std::move(m_near); }

 private:
    void Play(Bytes bytes) const {
        while (!bytes.empty()) {
            const ssize_t count = ::send(m_far.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) return;  // the connection has ended
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        }
        ::shutdown(m_far.Get(), SHUT_WR);
        std::array<char, 65536> buffer;
        while (::recv(m_far.Get(), buffer.data(), buffer.size(), 0) > 0) {
        }
    }

    std::unique_ptr<CPipeConnection> m_near;
    CFileDescriptor m_far;
    std::jthread m_thread;  // last: it uses everything above
};

void ServeClientThatSends(Bytes bytes, CEvent& never) {
    static const CTracedService service;
    CPeer client(bytes);
    const auto context = std::make_shared<CServiceAPIContext>(service.Trace(), std::string());
    Ignore(CServiceAPIConnection(context, client.TakeConnection()).Serve(never));
}

void AskServiceThatAnswers(Bytes bytes, CEvent& never) {
    CPeer service(bytes);
    const auto client = CServiceApiClient::Over(service.TakeConnection());
    constexpr std::chrono::milliseconds kNoWait{0};
    // Each answer takes some of the bytes.
    while (client->ReadRecords(0, kNoWait, never).Error() != ErrorCode::BrokenPipe &&
           client->ObjectName(1, never).Error() != ErrorCode::BrokenPipe) {
    }
}

}  // namespace

}  // namespace quorbel

/// Any bytes as what a client sends to the service's pipe, and as what a service answers.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quorbel;
    static const std::shared_ptr<CEvent> never = CEvent::Create(EventReset::Manual).Value();
    ServeClientThatSends({data, size}, *never);
    AskServiceThatAnswers({data, size}, *never);
    return 0;
}
