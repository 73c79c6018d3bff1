#include <cstdio>
#include <deque>
#include <stdexcept>

#include "bench/load/Commands.h"
#include "bench/load/Connection.h"

namespace quorbel {

namespace asio = boost::asio;
using asio::awaitable;

namespace {

/// So many connections are being opened at a time: a listening socket's queue is bounded.
constexpr int kOpening = 64;

class CIdleConnections {
 public:
    CIdleConnections(const Arguments& arguments)
        : m_server(CServer::Parse(arguments[0])),
          m_request(m_server.Head("GET", arguments[1])),
          m_count(Number(arguments[2])) {}

    int Run() {
        for (int i = 0; i < kOpening; ++i) Spawn(m_context, OpenSome());
        Spawn(m_context, StopAtEndOfInput());
        m_context.run();
        if (m_open < m_count) throw std::runtime_error("ended before all connections were open");
        std::printf("lost %d\n", m_lost);
        return m_lost == 0 ? 0 : 1;
    }

 private:
    awaitable<void> OpenSome() {
        while (m_begun < m_count) {
            ++m_begun;
            CConnection& connection = m_connections.emplace_back(m_context, m_server);
            co_await connection.Open();
            co_await connection.Send(m_request);
            const CReply reply = co_await connection.Receive();
            if (reply.status != 200) throw std::runtime_error("not answered: " + reply.head);
            Spawn(m_context, Watch(connection));
            if (++m_open == m_count) {
                std::printf("ready\n");
                std::fflush(stdout);
            }
        }
    }
    awaitable<void> Watch(CConnection& connection) {
        co_await connection.WaitForEnd();
        ++m_lost;
    }
    awaitable<void> StopAtEndOfInput() {
        co_await WaitForEndOfInput();
        m_context.stop();
    }

    const CServer m_server;
    const std::string m_request;
    const int m_count;
    asio::io_context m_context{1};
    std::deque<CConnection> m_connections;
    int m_begun = 0;
    int m_open = 0;
    int m_lost = 0;
};

}  // namespace

int RunIdle(const Arguments& arguments) {
    return CIdleConnections(arguments).Run();
}

}  // namespace quorbel
