#include <cpprest/containerstream.h>

#include "platform/Processors.h"
#include "tests/components/http_server/EngineFixture.h"

namespace quorbel {
namespace {

using std::chrono::seconds;
using Content = concurrency::streams::container_buffer<std::vector<std::uint8_t>>;
using End = CHttpConnection::End;

class TimeoutsTest : public CEngineFixture {
 protected:
    static constexpr const char* kHost = "127.0.0.1";

    TimeoutsTest() { OpenHost(); }

    void OpenHost() {
        Open(kHost, m_port, [this](web::http::http_request request) {
            if (request.relative_uri().path() == "/large") {
                web::http::http_response response(200);
                response.set_body(m_large.create_istream(), "text/plain");
                response.headers().remove("Content-Length");
                request.reply(response);
            } else {
                request.reply(200, std::to_string(BodyOf(request).size()));
            }
        });
    }
    /// Restarts the server with that bound.
    void OpenWith(const wchar_t* name, std::uint32_t number) {
        while (!m_listeners.empty()) Close(*m_listeners.front());
        SetLimit(name, number);
        StartServer();
        OpenHost();
    }
    /// Turns the clock, second by second, until the condition holds.
    void TurnUntil(const std::function<bool()>& condition, const char* what) {
        WaitUntil(
            [&] {
                m_clock.Turn(seconds(1));
                return condition();
            },
            what);
    }
    /// What comes until the connection's end while the clock is turned.
    std::string EndOf(CHttpConnection& connection, End expected = End::Clean) {
        std::string bytes;
        std::atomic<bool> hasEnded = false;
        std::thread turning([&] { TurnUntil([&hasEnded] { return hasEnded.load(); }, "the end"); });
        EXPECT_EQ(connection.ReceiveAll(bytes), expected);
        hasEnded = true;
        turning.join();
        return bytes;
    }
    /// Waits until every loop has looked at the time once more: connections that may idle for a second only
    /// have been closed.
    void AwaitTicks(std::list<CHttpConnection>& idle) {
        // The second half only shows that the first one had been idle when the clock was turned.
        auto connection = idle.begin();
        for (std::size_t i = 0; i < UsableProcessors(); ++i, ++connection) {
            std::string bytes;
            EXPECT_EQ(connection->ReceiveAll(bytes), End::Clean);
        }
    }
    /// Idle connections, two on each loop.
    std::list<CHttpConnection> MakeIdle() {
        std::list<CHttpConnection> idle;
        for (std::size_t i = 0; i < UsableProcessors() * 2; ++i) {
            EXPECT_EQ(Ask(idle.emplace_back(m_port), Get(kHost)), "200 0");
        }
        return idle;
    }

    const int m_port = FreePort();
    Content m_large;
};

TEST_F(TimeoutsTest, AConnectionThatNeverAsksIsClosedWithoutAWord) {
    CHttpConnection connection(m_port);
    EXPECT_EQ(EndOf(connection), "");
}

TEST_F(TimeoutsTest, AHeadThatIsNotCompleteInTimeIsAnswered408) {
    for (const char* begin : {"G", "GET / HTTP/1.1\r\n", "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nX: y\r\n"}) {
        CHttpConnection connection(m_port);
        ASSERT_TRUE(connection.Send(begin));
        EXPECT_THAT(EndOf(connection), ::testing::StartsWith("HTTP/1.1 408")) << begin;
        CHttpConnection used(m_port);
        EXPECT_EQ(Ask(used, Get(kHost)), "200 0");
        ASSERT_TRUE(used.Send(begin));
        EXPECT_THAT(EndOf(used), ::testing::StartsWith("HTTP/1.1 408")) << begin;
    }
}

TEST_F(TimeoutsTest, AHeadThatTricklesIsNotGivenMoreTime) {
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send("GET / HTTP/1.1\r\nX: "));
    TurnUntil([&] { return !connection.Send("a"); }, "the end of the connection");
}

TEST_F(TimeoutsTest, AHeadThatComesInTimeIsServed) {
    OpenWith(L"KeepAliveSeconds", 5);
    CHttpConnection connection(m_port);
    EXPECT_EQ(Ask(connection, Get(kHost)), "200 0");
    auto idle = MakeIdle();
    ASSERT_TRUE(connection.Send("GET / HTTP/1.1\r\n"));
    WaitUntil([this] { return Ask(m_port, Get(kHost)) == "200 0"; }, "another connection");
    m_clock.Turn(seconds(9));
    AwaitTicks(idle);
    EXPECT_EQ(Ask(connection, "Host: 127.0.0.1\r\n\r\n"), "200 0");
}

TEST_F(TimeoutsTest, AnIdleConnectionIsClosed) {
    CHttpConnection connection(m_port);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Ask(connection, Get(kHost)), "200 0") << "each request begins the time anew";
        m_clock.Turn(seconds(55));
    }
    EXPECT_EQ(EndOf(connection), "");
}

TEST_F(TimeoutsTest, ABodyThatIsTooSlowIsAnswered408) {
    for (const char* begin : {"", "0123456789"}) {
        CHttpConnection connection(m_port);
        ASSERT_TRUE(connection.Send("POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 100000\r\n\r\n"));
        ASSERT_TRUE(connection.Send(begin));
        EXPECT_THAT(EndOf(connection), ::testing::StartsWith("HTTP/1.1 408"));
    }
}

TEST_F(TimeoutsTest, ABodyThatComesSteadilyIsTaken) {
    OpenWith(L"KeepAliveSeconds", 1);
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send("POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 100000\r\n\r\n"));
    // Twice the least rate, for long.
    for (int sent = 0; sent < 100'000; sent += 20'000) {
        auto idle = MakeIdle();
        ASSERT_TRUE(connection.Send(std::string(20'000, 'x')));
        m_clock.Turn(seconds(9));
        AwaitTicks(idle);
    }
    EXPECT_EQ(connection.Receive().value_or(CHttpReply()).body, "100000");
}

TEST_F(TimeoutsTest, AClientThatDoesNotReadIsCutOff) {
    m_large = Content(std::vector<std::uint8_t>(64 << 20, 'x'), std::ios_base::in);
    CHttpConnection connection(m_port, "127.0.0.1", 4096);
    ASSERT_TRUE(connection.Send(Get(kHost, "/large")));
    ASSERT_TRUE(connection.WaitForBytes());
    TurnUntil([this] { return !m_large.can_read(); }, "the end of the body");
    std::string rest;
    EXPECT_EQ(connection.ReceiveAll(rest), End::Aborted);
    EXPECT_LT(rest.size(), std::size_t{64} << 20);
}

TEST_F(TimeoutsTest, AClientThatReadsSlowlyButSteadilyReceivesAll) {
    OpenWith(L"KeepAliveSeconds", 1);
    constexpr std::size_t kSize = 12 << 20;
    m_large = Content(std::vector<std::uint8_t>(kSize, 'x'), std::ios_base::in);
    CHttpConnection connection(m_port, "127.0.0.1", 65536);
    ASSERT_TRUE(connection.Send(Get(kHost, "/large", "Connection: close\r\n")));
    std::size_t received = 0;
    for (int step = 0; step < 6; ++step) {
        for (const std::size_t until = received + (1 << 20); received < until;) {
            const std::size_t count = connection.ReceiveSome(16384).size();
            ASSERT_NE(count, 0u);
            received += count;
        }
        // Far more than the least rate, and longer than may pass without progress.
        auto idle = MakeIdle();
        m_clock.Turn(seconds(15));
        AwaitTicks(idle);
    }
    std::string rest;
    EXPECT_EQ(connection.ReceiveAll(rest), End::Clean);
    EXPECT_GT(received + rest.size(), kSize);
    EXPECT_TRUE(rest.ends_with("\r\n0\r\n\r\n"));
}

TEST_F(TimeoutsTest, ARefusalIsSeenByAClientThatKeepsSending) {
    const std::string head = "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 100000000\r\n\r\n";
    for (const std::size_t size : {std::size_t{100}, std::size_t{60'000}, std::size_t{4} << 20}) {
        CHttpConnection connection(m_port);
        Ignore(connection.Send(head + std::string(size, 'x')));
        const auto reply = connection.Receive();
        EXPECT_EQ(reply.value_or(CHttpReply()).status, 413) << size;
    }
}

TEST_F(TimeoutsTest, WhoGoesOnSendingAfterTheLastReplyIsCutOffAfterASecond) {
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost, "/", "Connection: close\r\n")));
    std::string reply;
    EXPECT_EQ(connection.ReceiveAll(reply), End::Clean);
    TurnUntil([&] { return !connection.Send("x"); }, "the end of the connection");
}

}  // namespace
}  // namespace quorbel
