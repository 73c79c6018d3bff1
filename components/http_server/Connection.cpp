#include "components/http_server/Connection.h"

#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

namespace quorbel {

namespace {

using boost::asio::ip::tcp;
using ErrorCondition = boost::system::error_code;

/// What is read at once after a read that filled a connection's own buffer.
constexpr std::size_t kLargeRead = 65536;
/// TLS's own messages that a client has not taken yet.
constexpr std::size_t kMostUnread = 65536;
/// Sending a file yields to other connections after so many bytes.
constexpr std::size_t kLargestSendfile = 1 << 20;
/// The kernel holds so many bytes at most that have not left yet.
constexpr int kUnsentBytes = 131072;

}  // namespace

CConnection::CConnection(CLoop& loop, Socket socket, std::shared_ptr<CPort> port, CAdmission admission)
    : m_loop(loop.shared_from_this()),
      m_port(std::move(port)),
      m_admission(std::move(admission)),
      m_socket(std::move(socket)) {
    ErrorCondition ignored;
    const auto peer = Unmapped(m_socket.remote_endpoint(ignored).address());
    const auto local = Unmapped(m_socket.local_endpoint(ignored).address());
    m_peerAddress = peer.to_string();
    m_localAddress = local.to_string();
    m_isLocal = local.is_loopback();
    m_socket.non_blocking(true, ignored);
    m_socket.set_option(tcp::no_delay(true), ignored);
    ::setsockopt(m_socket.native_handle(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kUnsentBytes,
                 sizeof kUnsentBytes);
}

CConnection::~CConnection() = default;

void CConnection::Start(std::unique_ptr<IProtocol> protocol, const CTlsServer* tls) {
    m_protocol = std::move(protocol);
    if (tls) {
        m_tls = std::make_unique<CTlsChannel>(*tls, [this](std::string_view serverName) {
            return m_port->ChooseCertificate(std::string(serverName), m_localAddress, ReachedFrom());
        });
    }
    m_loop->AddTicking(std::shared_ptr<ITicking>(shared_from_this(), this));
    Read();
    Settle();
}

const std::string& CConnection::ServerName() const noexcept {
    static const std::string none;
    return m_tls ? m_tls->ServerName() : none;
}

void CConnection::OnTick(std::chrono::nanoseconds now) {
    const auto self = shared_from_this();
    m_protocol->OnTick(now);
    Settle();
}

void CConnection::OnLoopEnd() {
    const auto self = shared_from_this();
    m_protocol->OnStop();
}

void CConnection::Settle() {
    if (!m_wantsRead || m_isReading || !IsOpen()) return;
    if (m_hasEnded) {
        m_protocol->OnEnd();
    } else {
        StartRead();
    }
}

void CConnection::StartRead() {
    m_wantsRead = false;
    m_isReading = true;
    m_socket.async_read_some(boost::asio::buffer(m_buffer),
                             [self = shared_from_this()](const ErrorCondition& error, std::size_t count) {
                                 self->OnRead(error, count);
                             });
}

void CConnection::OnRead(const ErrorCondition& error, std::size_t count) {
    m_isReading = m_wantsRead = false;
    if (!IsOpen()) return;
    if (error) {
        m_hasEnded = m_wantsRead = true;
    } else {
        if (!Deliver({m_buffer.data(), count})) return;
        if (count == m_buffer.size() && !ReadOn()) return;
    }
    Settle();
}

bool CConnection::ReadOn() {
    thread_local std::array<char, kLargeRead> large;
    if (!m_wantsRead || !IsOpen()) return true;
    const ssize_t count = ::recv(m_socket.native_handle(), large.data(), large.size(), MSG_DONTWAIT);
    if (count < 0) return true;  // the next read says what is wrong, if anything is
    m_wantsRead = false;
    if (count > 0) return Deliver({large.data(), static_cast<std::size_t>(count)});
    m_hasEnded = m_wantsRead = true;
    return true;
}

bool CConnection::Deliver(std::string_view bytes) {
    return m_tls ? DeliverTls(bytes) : m_protocol->OnInput(bytes);
}

bool CConnection::DeliverTls(std::string_view bytes) {
    std::string plain;
    const CTlsChannel::Status status = m_tls->Receive(bytes, plain, m_wire);
    m_hasEnded = status != CTlsChannel::Status::Open;
    if (!m_wire.empty() && SendWire(More::No) == Sent::Failed) m_hasEnded = true;
    // A client may ask TLS for answers without end, and take none of them.
    if (m_wire.size() - m_wireSent > kMostUnread) m_hasEnded = true;
    if (!plain.empty()) return m_protocol->OnInput(plain);
    Read();
    return true;
}

CConnection::Sent CConnection::Flush(More more) {
    if (m_tls && !m_plain.empty()) {
        if (!m_tls->Send(m_plain, m_wire)) return Sent::Failed;
        m_plain.clear();
    }
    const Sent sent = SendWire(more);
    m_isProtocolBlocked = sent == Sent::Blocked;
    return sent;
}

CConnection::Sent CConnection::SendWire(More more) {
    const int flags = MSG_NOSIGNAL | MSG_DONTWAIT | (more == More::Follows ? MSG_MORE : 0);
    while (m_wireSent < m_wire.size()) {
        const ssize_t count =
            ::send(m_socket.native_handle(), m_wire.data() + m_wireSent, m_wire.size() - m_wireSent, flags);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && (errno == EAGAIN || errno == ENOBUFS)) {
            m_isWireBlocked = true;
            WaitUntilWritable();
            return Sent::Blocked;
        }
        if (count < 0) return Sent::Failed;
        m_wireSent += static_cast<std::size_t>(count);
        m_sentTotal += static_cast<std::uint64_t>(count);
    }
    m_wire.clear();
    m_wireSent = 0;
    m_isWireBlocked = false;
    return Sent::All;
}

CConnection::Sent CConnection::SendFile(int file, std::uint64_t& offset, std::uint64_t end) {
    auto position = static_cast<off_t>(offset);
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(end - offset, kLargestSendfile));
    ssize_t count = 0;
    do {
        count = ::sendfile(m_socket.native_handle(), file, &position, wanted);
    } while (count < 0 && errno == EINTR);
    if (count < 0 && (errno == EINVAL || errno == ENOSYS)) {
        m_canSendFiles = false;  // some file systems cannot
        return Sent::All;
    }
    if (count < 0) return errno == EAGAIN ? Sent::Blocked : Sent::Failed;
    if (count == 0) return Sent::Failed;  // the file has become shorter
    offset += static_cast<std::uint64_t>(count);
    m_sentTotal += static_cast<std::uint64_t>(count);
    return Sent::All;
}

void CConnection::WaitUntilWritable() {
    if (m_isWaitingWritable) return;
    m_isWaitingWritable = true;
    m_socket.async_wait(Socket::wait_write, [self = shared_from_this()](const ErrorCondition& error) {
        self->OnWritable(error);
    });
}

void CConnection::OnWritable(const ErrorCondition& error) {
    m_isWaitingWritable = false;
    if (!IsOpen() || error) return;
    const bool isBlocked = std::exchange(m_isProtocolBlocked, false);
    if (!isBlocked && !m_isWireBlocked) return;  // what blocked has been sent since
    switch (SendWire(More::No)) {
        case Sent::Blocked: m_isProtocolBlocked = isBlocked; return;
        case Sent::Failed: m_protocol->OnEnd(); return;
        case Sent::All: break;
    }
    if (isBlocked && m_protocol->OnWritable()) Settle();
}

void CConnection::ReleaseOutput() {
    std::string().swap(m_wire);
    std::string().swap(m_plain);
}

std::uint64_t CConnection::Acknowledged() {
    int queued = 0;
    ::ioctl(m_socket.native_handle(), SIOCOUTQ, &queued);
    return m_sentTotal - std::min<std::uint64_t>(m_sentTotal, static_cast<std::uint64_t>(queued));
}

bool CConnection::HasPeerLeft() {
    pollfd state{m_socket.native_handle(), POLLRDHUP, 0};
    return ::poll(&state, 1, 0) > 0;
}

void CConnection::EndOutput() {
    if (m_tls && m_tls->IsEstablished()) {
        m_tls->Close(m_wire);
        Ignore(SendWire(More::No));
    }
    ErrorCondition ignored;
    m_socket.shutdown(Socket::shutdown_send, ignored);
}

void CConnection::Close() {
    if (!IsOpen()) return;
    m_loop->RemoveTicking(*this);
    ErrorCondition ignored;
    m_socket.close(ignored);
}

void CConnection::Abort() {
    if (!IsOpen()) return;
    ErrorCondition ignored;
    m_socket.set_option(boost::asio::socket_base::linger(true, 0), ignored);
    Close();
}

void CConnection::Break() {
    ErrorCondition ignored;
    m_socket.shutdown(Socket::shutdown_both, ignored);
}

}  // namespace quorbel
