#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "bench/load/Commands.h"
#include "bench/load/Connection.h"

namespace quorbel {

namespace asio = boost::asio;
using asio::awaitable;
using std::chrono::milliseconds;

namespace {

enum class Slowness { Head, Body, Reader };
constexpr std::array kSlownesses{Slowness::Head, Slowness::Body, Slowness::Reader};

/// Between two bytes of a connection, and between two looks at one that does not read.
constexpr milliseconds kTrickle{1000};
/// The first connections are opened spread over this time.
constexpr milliseconds kStart{6000};
/// The end of a connection that does not read may lie behind what was not read: it is given up after this
/// time.
constexpr int kReaderTrickles = 30;
/// Keeps the system from taking much for those that do not read.
constexpr int kReceiveBuffer = 4096;

class CCrowd {
 public:
    CCrowd(const Arguments& arguments)
        : m_server(CServer::Parse(arguments[0])),
          m_count(Number(arguments[3])),
          m_head(m_server.Head("GET", arguments[1], "X-Long: " + std::string(4000, 'x') + "\r\n")),
          m_body(m_server.Head("POST", arguments[1],
                               "Content-Type: application/x-www-form-urlencoded\r\n"
                               "Content-Length: 100000\r\n")),
          m_large(m_server.Head("GET", arguments[2])) {}

    int Run() {
        for (const Slowness slowness : kSlownesses) {
            for (int i = 0; i < m_count; ++i) Spawn(m_context, KeepUp(slowness, kStart * i / m_count));
        }
        Spawn(m_context, Watch());
        Spawn(m_context, StopAtEndOfInput());
        m_context.run();
        std::printf("%d up at least; opened again: heads %d, bodies %d, readers %d; not let in: %d\n",
                    m_leastUp, m_again[0], m_again[1], m_again[2], m_refused);
        return 0;
    }

 private:
    awaitable<void> Pause(milliseconds time) {
        asio::steady_timer timer(m_context, time);
        co_await timer.async_wait(asio::use_awaitable);
    }
    /// One slow client after the other.
    awaitable<void> KeepUp(Slowness slowness, milliseconds delay) {
        co_await Pause(delay);
        bool wasOpen = false;
        for (;;) {
            CConnection connection(m_context, m_server);
            bool isOpen = false;
            try {
                co_await connection.Open(kReceiveBuffer);
                isOpen = true;
                m_up += 1;
                if (!wasOpen) m_begun += 1;
                wasOpen = true;
                co_await BeSlow(connection, slowness);
            } catch (const boost::system::system_error&) {
            }
            if (isOpen) {
                m_up -= 1;
                m_again[static_cast<std::size_t>(slowness)] += 1;
            } else {
                m_refused += 1;
                co_await Pause(kTrickle);
            }
        }
    }
    /// Until the service ends the connection.
    awaitable<void> BeSlow(CConnection& connection, Slowness slowness) {
        switch (slowness) {
            case Slowness::Head:
                for (std::size_t i = 0; i < m_head.size() && !connection.HasSomethingToSay(); ++i) {
                    co_await connection.Send(m_head.substr(i, 1));
                    co_await Pause(kTrickle);
                }
                break;
            case Slowness::Body:
                co_await connection.Send(m_body);
                while (!connection.HasSomethingToSay()) {
                    co_await connection.Send("x");
                    co_await Pause(kTrickle);
                }
                break;
            case Slowness::Reader:
                co_await connection.Send(m_large);
                for (int i = 0; i < kReaderTrickles; ++i) co_await Pause(kTrickle);
                break;
        }
    }
    /// Says when the crowd stands, and from then on looks how many are up.
    awaitable<void> Watch() {
        const int all = m_count * static_cast<int>(kSlownesses.size());
        while (m_begun < all) co_await Pause(kTrickle);
        std::printf("ready\n");
        std::fflush(stdout);
        for (m_leastUp = all;; m_leastUp = std::min(m_leastUp, m_up)) co_await Pause(kTrickle / 10);
    }
    awaitable<void> StopAtEndOfInput() {
        co_await WaitForEndOfInput();
        m_context.stop();
    }

    const CServer m_server;
    const int m_count;
    const std::string m_head;
    const std::string m_body;
    const std::string m_large;
    int m_begun = 0;
    int m_up = 0;
    int m_leastUp = 0;
    std::array<int, kSlownesses.size()> m_again{};
    int m_refused = 0;
    asio::io_context m_context{1};
};

}  // namespace

int RunCrowd(const Arguments& arguments) {
    return CCrowd(arguments).Run();
}

}  // namespace quorbel
