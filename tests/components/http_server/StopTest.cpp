#include <cpprest/containerstream.h>
#include <cpprest/producerconsumerstream.h>

#include "platform/Processors.h"
#include "platform/Waiting.h"
#include "tests/components/http_server/EngineFixture.h"

namespace quorbel {
namespace {

using End = CHttpConnection::End;
using Pipe = concurrency::streams::producer_consumer_buffer<std::uint8_t>;
using web::http::http_request;

/// So long that a stop that waits for it is as good as one that hangs.
constexpr std::uint32_t kForever = 3600;

class StopTest : public CEngineFixture {
 protected:
    static constexpr const char* kHost = "127.0.0.1";

    void Serve(std::uint32_t stopSeconds, const Handler& handler) {
        SetLimit(L"StopTimeoutSeconds", stopSeconds);
        StartServer();
        Open(kHost, m_port, handler);
    }
    /// As the service does.
    void Stop() {
        while (!m_listeners.empty()) Close(*m_listeners.front());
        StopServer();
    }
    static Handler Streams(Pipe pipe) {
        return Replies([pipe] {
            Response response(200);
            response.set_body(pipe.create_istream(), "text/plain");
            return response;
        });
    }

    const int m_port = FreePort();
};

TEST_F(StopTest, IdleConnectionsAreNotWaitedFor) {
    Serve(kForever, Says("x"));
    std::vector<std::unique_ptr<CHttpConnection>> idle;
    idle.push_back(std::make_unique<CHttpConnection>(m_port));  // it never asks
    for (std::size_t i = 0; i < UsableProcessors() * 2; ++i) {
        idle.push_back(std::make_unique<CHttpConnection>(m_port));
        EXPECT_EQ(Ask(*idle.back(), Get(kHost)), "200 x");
    }
    Stop();
    for (const auto& connection : idle) {
        std::string rest;
        EXPECT_EQ(connection->ReceiveAll(rest), End::Clean);
        EXPECT_EQ(rest, "");
    }
}

TEST_F(StopTest, AHandlerThatWaitsForLongIsToldThatItsHostCloses) {
    std::promise<void> waits;
    Serve(5, [&waits](const http_request& request) {
        const auto abandoned = WorkAbandoned();
        waits.set_value();
        request.reply(WaitForAny({abandoned.get()}, std::chrono::minutes(1)).IsOk() ? 503 : 200);
    });
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    waits.get_future().wait();
    auto closing = std::async(std::launch::async, [this] { Close(*m_listeners.front()); });
    WaitUntil(
        [&] {
            m_clock.Turn(std::chrono::seconds(1));
            return closing.wait_for(std::chrono::milliseconds(1)) == std::future_status::ready;
        },
        "the host's end");
    const auto reply = connection.Receive();
    EXPECT_EQ(reply ? reply->status : 0, 503);
}

TEST_F(StopTest, ARunningReplyEndsWhole) {
    const std::string content(32 << 20, 'x');
    Serve(kForever, Says(content));
    CHttpConnection connection(m_port, "127.0.0.1", 4096);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    ASSERT_TRUE(connection.WaitForBytes());
    std::thread stopping([this] { Stop(); });
    WaitUntil([this] { return !CHttpConnection(m_port).IsConnected(); }, "the listeners' end");
    const auto reply = connection.Receive();
    ASSERT_TRUE(reply.has_value());
    EXPECT_TRUE(reply->body == content);
    connection.Leave();
    stopping.join();
}

TEST_F(StopTest, AReplyThatDoesNotEndInTimeIsAborted) {
    for (const char* version : {"1.1", "1.0"}) {
        Pipe pipe;
        Serve(0, Streams(pipe));
        CHttpConnection connection(m_port);
        ASSERT_TRUE(connection.Send("GET / HTTP/" + std::string(version) + "\r\nHost: 127.0.0.1\r\n\r\n"));
        ASSERT_TRUE(connection.WaitForBytes());
        Stop();
        EXPECT_FALSE(pipe.can_read()) << "its owner is told";
        std::string rest;
        EXPECT_EQ(connection.ReceiveAll(rest), End::Aborted) << version;
        // The body goes on when nobody is there any more.
        pipe.close(std::ios_base::out).get();
    }
}

TEST_F(StopTest, AClientThatDoesNotReadIsCutOff) {
    Serve(0, Says(std::string(32 << 20, 'x')));
    CHttpConnection connection(m_port, "127.0.0.1", 4096);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    ASSERT_TRUE(connection.WaitForBytes());
    Stop();
    std::string rest;
    EXPECT_EQ(connection.ReceiveAll(rest), End::Aborted);
}

TEST_F(StopTest, AReplyAfterTheEndIsDropped) {
    std::promise<http_request> taken;
    Serve(0, [&taken](const http_request& request) { taken.set_value(request); });
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    auto request = taken.get_future().get();
    Stop();
    std::string rest;
    EXPECT_EQ(connection.ReceiveAll(rest), End::Clean);
    EXPECT_EQ(rest, "");
    Pipe pipe;
    Response response(200);
    response.set_body(pipe.create_istream(), "text/plain");
    request.reply(response);
    pipe.close(std::ios_base::out).get();
}

TEST_F(StopTest, WaitingHandlersAreWaitedForAndTheirThreadsEnd) {
    CWaitingRoom room;
    Serve(kForever, [&room](const http_request& request) {
        room.Wait();
        request.reply(200);
    });
    const std::size_t count = UsableProcessors() * 2 + 1;
    std::vector<std::unique_ptr<CHttpConnection>> waiting;
    for (std::size_t i = 0; i < count; ++i) {
        waiting.push_back(std::make_unique<CHttpConnection>(m_port));
        ASSERT_TRUE(waiting.back()->Send(Get(kHost)));
    }
    WaitUntil([&] { return room.Entered() == count; }, "the handlers");
    std::thread stopping([this] { Stop(); });
    WaitUntil([this] { return !CHttpConnection(m_port).IsConnected(); }, "the listeners' end");
    room.Open();
    for (const auto& connection : waiting) {
        EXPECT_EQ(connection->Receive().value_or(CHttpReply()).status, 200);
        connection->Leave();
    }
    stopping.join();
}

}  // namespace
}  // namespace quorbel
