#include "components/http_server/Acceptor.h"

#include <boost/asio/ip/v6_only.hpp>
#include <fcntl.h>
#include <future>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>

namespace quorbel {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

/// How long accepting rests when the process has no descriptor left.
constexpr std::chrono::milliseconds kPause{100};
/// After so many connections the loop's own have their turn.
constexpr int kAcceptedPerTurn = 64;

/// A second descriptor of the socket that the service manager passed for this address; -1 for none.
int PassedSocket(const tcp::endpoint& endpoint) {
    const int count = ::sd_listen_fds(0);
    for (int file = SD_LISTEN_FDS_START; file < SD_LISTEN_FDS_START + count; ++file) {
        tcp::endpoint address;
        auto size = static_cast<socklen_t>(address.capacity());
        if (::sd_is_socket(file, AF_UNSPEC, SOCK_STREAM, 1) <= 0) continue;
        if (::getsockname(file, address.data(), &size) != 0) continue;
        address.resize(size);
        if (address == endpoint) return ::fcntl(file, F_DUPFD_CLOEXEC, 0);
    }
    return -1;
}

}  // namespace

CAcceptor::CAcceptor(const Endpoint& endpoint, const Loops& loops, OnAccept onAccept)
    : m_endpoint(endpoint),
      m_loops(loops),
      m_loop(*loops[0]),
      m_onAccept(std::move(onAccept)),
      m_acceptor(m_loop.Context()),
      m_pause(m_loop.Context()) {}

std::shared_ptr<CAcceptor> CAcceptor::Open(const Endpoint& endpoint, const Loops& loops, const List& siblings,
                                           OnAccept onAccept) {
    auto acceptor = std::make_shared<CAcceptor>(endpoint, loops, std::move(onAccept));
    acceptor->Listen(siblings);
    acceptor->m_loop.Post([acceptor] { acceptor->Accept(); });
    return acceptor;
}

void CAcceptor::SharePort(bool isShared) {
    const int value = isShared ? 1 : 0;
    ::setsockopt(m_acceptor.native_handle(), SOL_SOCKET, SO_REUSEPORT, &value, sizeof value);
}

void CAcceptor::Listen(const List& siblings) {
    const bool isIpv6 = m_endpoint.protocol() == tcp::v6();
    if (const int passed = PassedSocket(m_endpoint); passed >= 0) {
        m_acceptor.assign(m_endpoint.protocol(), passed);
        asio::ip::v6_only onlyIpv6;
        if (isIpv6) m_acceptor.get_option(onlyIpv6);
        m_takesIpv4 = isIpv6 && !onlyIpv6;
    } else {
        m_acceptor.open(m_endpoint.protocol());
        ::fcntl(m_acceptor.native_handle(), F_SETFD, FD_CLOEXEC);
        // Connections of a predecessor may still linger on the port; two listeners exclude each other even
        // so.
        m_acceptor.set_option(tcp::acceptor::reuse_address(true));
        if (isIpv6) m_acceptor.set_option(asio::ip::v6_only(true));
        // Only while this one binds, and only for our own: another process must not share the port.
        if (!siblings.empty()) SharePort(true);
        for (const auto& sibling : siblings) sibling->SharePort(true);
        boost::system::error_code error;
        m_acceptor.bind(m_endpoint, error);
        if (!error) m_acceptor.listen(SOMAXCONN, error);
        for (const auto& sibling : siblings) sibling->SharePort(false);
        SharePort(false);
        if (error) throw boost::system::system_error(error);
    }
    m_acceptor.non_blocking(true);
}

bool CAcceptor::Covers(const Endpoint& endpoint) const noexcept {
    return m_takesIpv4 && m_endpoint.address().is_unspecified() && endpoint.address().is_v4() &&
           m_endpoint.port() == endpoint.port();
}

void CAcceptor::CloseAndWait() {
    std::promise<void> closed;
    m_loop.Post([self = shared_from_this(), &closed] {
        self->AcceptWaiting();
        boost::system::error_code ignored;
        self->m_acceptor.close(ignored);
        self->m_pause.cancel();
        closed.set_value();
    });
    closed.get_future().wait();
}

void CAcceptor::Accept() {
    if (!m_acceptor.is_open()) return;
    CLoop& loop = NextLoop();
    m_acceptor.async_accept(loop.Context(), [self = shared_from_this(), &loop](
                                                const boost::system::error_code& error, Socket socket) {
        if (error == asio::error::operation_aborted) return;
        // What keeps a connection from being accepted mostly keeps the next one, too.
        if (error && error != asio::error::connection_aborted) return self->Pause();
        if (!error) {
            self->Take(loop, std::move(socket));
            self->AcceptWaiting();
        }
        self->Accept();
    });
}

void CAcceptor::AcceptWaiting() {
    boost::system::error_code error;
    for (int turn = 0; turn != kAcceptedPerTurn && m_acceptor.is_open(); ++turn) {
        CLoop& loop = NextLoop();
        Socket socket(loop.Context());
        m_acceptor.accept(socket, error);
        if (error) return;
        Take(loop, std::move(socket));
    }
}

void CAcceptor::Take(CLoop& loop, Socket socket) {
    ++m_accepted;
    m_onAccept(loop, std::move(socket));
}

void CAcceptor::Pause() {
    m_pause.expires_after(kPause);
    m_pause.async_wait([self = shared_from_this()](const boost::system::error_code&) { self->Accept(); });
}

}  // namespace quorbel
