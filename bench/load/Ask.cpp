#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "bench/load/Commands.h"
#include "bench/load/Connection.h"

namespace quorbel {

namespace asio = boost::asio;
using asio::awaitable;
using Clock = std::chrono::steady_clock;

namespace {

/// What is asked at the beginning is not measured.
constexpr std::chrono::milliseconds kWarmUp{300};

class CAsking {
 public:
    CAsking(const Arguments& arguments)
        : m_server(CServer::Parse(arguments[0])),
          m_request(m_server.Head("GET", arguments[1])),
          m_bytes(static_cast<std::size_t>(Number(arguments[2]))),
          m_connections(Number(arguments[3])),
          m_begin(Clock::now() + kWarmUp),
          m_end(m_begin + std::chrono::seconds(Number(arguments[4]))) {}

    int Run() {
        for (int i = 0; i < m_connections; ++i) Spawn(m_context, Ask());
        m_context.run_until(m_end + std::chrono::seconds(60));
        if (m_ended < m_connections) throw std::runtime_error("a request is not answered");
        const std::size_t count = m_microseconds.size();
        const double median = Percentile(m_microseconds, 0.5);
        std::printf("%zu %.0f %.0f\n", count, median, Percentile(m_microseconds, 0.99));
        return 0;
    }

 private:
    awaitable<void> Ask() {
        CConnection connection(m_context, m_server);
        co_await connection.Open();
        for (Clock::time_point begin = Clock::now(); begin < m_end;) {
            co_await connection.Send(m_request);
            const CReply reply = co_await connection.Receive();
            if (reply.status != 200 || reply.body.size() != m_bytes)
                throw std::runtime_error("wrong reply: " + reply.head);
            const Clock::time_point end = Clock::now();
            if (begin >= m_begin)
                m_microseconds.push_back(std::chrono::duration<double, std::micro>(end - begin).count());
            begin = end;
        }
        ++m_ended;
    }

    const CServer m_server;
    const std::string m_request;
    const std::size_t m_bytes;
    const int m_connections;
    const Clock::time_point m_begin;
    const Clock::time_point m_end;
    std::vector<double> m_microseconds;
    int m_ended = 0;
    asio::io_context m_context{1};
};

}  // namespace

int RunAsk(const Arguments& arguments) {
    return CAsking(arguments).Run();
}

}  // namespace quorbel
