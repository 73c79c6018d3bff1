#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <vector>

#include "components/http_server/Loop.h"

namespace quorbel {

/// A listening socket, served on a loop. What is accepted is spread over all loops in turn.
class CAcceptor : public std::enable_shared_from_this<CAcceptor> {
 public:
    using Endpoint = boost::asio::ip::tcp::endpoint;
    using Socket = boost::asio::ip::tcp::socket;
    using List = std::vector<std::shared_ptr<CAcceptor>>;
    using Loops = std::vector<std::shared_ptr<CLoop>>;
    /// Called on the acceptor's loop for each new connection, whose socket belongs to `loop`.
    using OnAccept = std::function<void(CLoop& loop, Socket socket)>;

    /// Listens on exactly this address, with a socket of its own or with one that the service manager passed
    /// to the process (sd_listen_fds(3)). `siblings` are ours on the same port: a socket
    /// on all addresses may stand beside one on a single address then, which no other process can do. Throws
    /// boost::system::system_error.
    static std::shared_ptr<CAcceptor> Open(const Endpoint& endpoint, const Loops& loops, const List& siblings,
                                           OnAccept onAccept);

    const Endpoint& LocalEndpoint() const noexcept { return m_endpoint; }
    /// True when connections to that address arrive here: a passed socket may take IPv4 beside IPv6.
    bool Covers(const Endpoint& endpoint) const noexcept;
    /// Accepts what is waiting, then closes the socket; returns when it is closed. Not on a loop.
    void CloseAndWait();

    CAcceptor(const Endpoint& endpoint, const Loops& loops, OnAccept onAccept);

 private:
    /// The loop of the next connection.
    CLoop& NextLoop() noexcept { return *m_loops[m_accepted % m_loops.size()]; }
    void Take(CLoop& loop, Socket socket);
    void Listen(const List& siblings);
    void SharePort(bool isShared);
    void Accept();
    /// Accepts what is waiting, but not without end.
    void AcceptWaiting();
    void Pause();

    const Endpoint m_endpoint;
    const Loops& m_loops;
    CLoop& m_loop;
    const OnAccept m_onAccept;
    std::size_t m_accepted = 0;
    bool m_takesIpv4 = false;  // an IPv6 socket that takes IPv4 as well
    boost::asio::ip::tcp::acceptor m_acceptor;
    boost::asio::steady_timer m_pause;
};

}  // namespace quorbel
