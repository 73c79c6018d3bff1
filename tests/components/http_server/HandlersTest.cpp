#include <cpprest/containerstream.h>
#include <cpprest/producerconsumerstream.h>
#include <set>
#include <sstream>

#include "platform/Processors.h"
#include "platform/Waiting.h"
#include "tests/components/http_server/EngineFixture.h"

namespace quorbel {
namespace {

using concurrency::streams::bytestream;
using Pipe = concurrency::streams::producer_consumer_buffer<std::uint8_t>;
using web::http::http_request;
using web::http::http_response;
using End = CHttpConnection::End;

/// Writes text to a pipe; its reader has it at once.
void Write(Pipe& pipe, const std::string& text) {
    pipe.putn_nocopy(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()).get();
    pipe.sync().get();
}

/// A reply whose body is read from the pipe.
http_response Streaming(const Pipe& pipe) {
    http_response response(200);
    response.set_body(pipe.create_istream(), "text/plain");
    return response;
}

class HandlersTest : public CEngineFixture {
 protected:
    static constexpr const char* kHost = "127.0.0.1";
    static std::string OldGet() { return "GET / HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n"; }
    void Serve(const Handler& handler) { Open(kHost, m_port, handler); }
    /// All that comes in reply to a request until the connection ends.
    std::string Everything(const std::string& request, End& end) {
        CHttpConnection connection(m_port);
        EXPECT_TRUE(connection.Send(request));
        std::string bytes;
        end = connection.ReceiveAll(bytes);
        return bytes;
    }

    const int m_port = FreePort();
};

TEST_F(HandlersTest, HandlersThatWaitDoNotStopOtherConnections) {
    CWaitingRoom room;
    Serve([&room](const http_request& request) {
        if (request.relative_uri().path() == "/wait") room.Wait();
        request.reply(200, request.relative_uri().path());
    });
    const std::size_t count = UsableProcessors() * 3 + 2;
    std::vector<std::unique_ptr<CHttpConnection>> waiting;
    CHttpConnection old(m_port);
    EXPECT_EQ(Ask(old, Get(kHost, "/quick")), "200 /quick");
    for (std::size_t i = 0; i < count; ++i) {
        waiting.push_back(std::make_unique<CHttpConnection>(m_port));
        ASSERT_TRUE(waiting.back()->Send(Get(kHost, "/wait")));
        WaitUntil([&] { return room.Entered() == i + 1; }, "the handler");
        EXPECT_EQ(Ask(old, Get(kHost, "/quick")), "200 /quick");
        for (std::size_t each = 0; each < 2 * UsableProcessors(); ++each) {
            EXPECT_EQ(Ask(m_port, Get(kHost, "/quick")), "200 /quick");
        }
    }
    room.Open();
    for (const auto& connection : waiting) EXPECT_EQ(connection->Receive().value().body, "/wait");
}

TEST_F(HandlersTest, ConnectionsAreSpreadOverTheProcessors) {
    if (UsableProcessors() < 2) GTEST_SKIP() << "there is only one";
    Serve([](const http_request& request) {
        std::ostringstream thread;
        thread << std::this_thread::get_id();
        request.reply(200, thread.str());
    });
    std::set<std::string> threads;
    std::list<CHttpConnection> connections;
    for (std::size_t i = 0; i < UsableProcessors(); ++i) {
        threads.insert(Ask(connections.emplace_back(m_port), Get(kHost)));
    }
    EXPECT_EQ(threads.size(), UsableProcessors());
}

TEST_F(HandlersTest, HandlersBeyondTheThreadsWaitTheirTurn) {
    SetLimit(L"MaxWaitingHandlers", 1);
    StartServer();
    CWaitingRoom room;
    Serve([&room](const http_request& request) {
        room.Wait();
        request.reply(200);
    });
    std::vector<std::unique_ptr<CHttpConnection>> waiting;
    for (std::size_t i = 0; i < UsableProcessors() * 4; ++i) {
        waiting.push_back(std::make_unique<CHttpConnection>(m_port));
        ASSERT_TRUE(waiting.back()->Send(Get(kHost)));
    }
    WaitUntil([&] { return room.Entered() == UsableProcessors() + 1; }, "as many handlers as may wait");
    room.Open();
    for (const auto& connection : waiting) EXPECT_EQ(connection->Receive().value().status, 200);
}

TEST_F(HandlersTest, AReplyMayComeLaterFromAnotherThread) {
    std::promise<http_request> taken;
    Serve([&taken](const http_request& request) { taken.set_value(request); });
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    std::thread([&taken] { taken.get_future().get().reply(200, "later"); }).join();
    EXPECT_EQ(connection.Receive().value().body, "later");
}

TEST_F(HandlersTest, AHandlerThatFailsIsAnswered500AndTheConnectionGoesOn) {
    const auto replies = [](std::uint16_t status, const char* name, const char* value) {
        return Replies([=] {
            http_response response(status);
            response.headers()[name] = value;
            response.set_body("secret");
            return response;
        });
    };
    const std::pair<const char*, Handler> cases[] = {
        {"drops the request", [](const http_request&) {}},
        {"throws", [](const http_request&) { throw std::runtime_error("secret"); }},
        {"throws a number", [](const http_request&) { throw 1; }},
        {"a line end in a value", replies(200, "X", "a\r\nSet-Cookie: b=c")},
        {"a bare LF in a value", replies(200, "X", "a\nb")},
        {"a NUL in a value", Replies([] {
             http_response response(200);
             response.headers()["X"] = std::string("a\0b", 3);
             return response;
         })},
        {"a line end in a name", replies(200, "X\r\nY", "a")},
        {"an empty name", replies(200, "", "a")},
        {"a colon in a name", replies(200, "X:", "a")},
        {"an interim status", replies(100, "X", "a")},
        {"a switch of protocols", replies(101, "X", "a")},
        {"no status", replies(0, "X", "a")},
        {"a status of four digits", replies(1000, "X", "a")}};
    const Handler* current = nullptr;
    Serve([&current](const http_request& request) { (*current)(request); });
    CHttpConnection connection(m_port);
    for (const auto& [what, handler] : cases) {
        current = &handler;
        EXPECT_EQ(Ask(connection, Get(kHost)), "500 ") << what;
    }
}

TEST_F(HandlersTest, AnExceptionAfterTheReplyChangesNothing) {
    Serve([](const http_request& request) {
        request.reply(200, "said");
        throw std::runtime_error("too late");
    });
    CHttpConnection connection(m_port);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Ask(connection, Get(kHost)), "200 said");
}

TEST_F(HandlersTest, AStreamOfUnknownLengthIsChunkedOrEndsWithTheConnection) {
    const std::string content(200'000, 'x');
    Serve(Replies([&content] {
        http_response response(200);
        response.set_body(bytestream::open_istream(content), "text/plain");
        response.headers().remove("Content-Length");
        return response;
    }));
    CHttpConnection connection(m_port);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(connection.Send(Get(kHost)));
        const auto reply = connection.Receive();
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->Header(L"Transfer-Encoding"), "chunked");
        EXPECT_EQ(reply->Header(L"Content-Length"), "(none)");
        EXPECT_TRUE(reply->body == content);
    }
    End end = End::None;
    const std::string old = Everything(OldGet(), end);
    EXPECT_EQ(end, End::Clean);
    const std::size_t body = old.find("\r\n\r\n") + 4;
    EXPECT_TRUE(old.substr(body) == content);
    EXPECT_EQ(old.substr(0, body).find("Transfer-Encoding"), std::string::npos);
    EXPECT_NE(old.substr(0, body).find("Connection: close"), std::string::npos);
}

TEST_F(HandlersTest, WhatAStreamHasAlreadyIsSentWhileItWaits) {
    Pipe pipe;
    Serve(Replies([&pipe] { return Streaming(pipe); }));
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    std::string received;
    const auto receivesUntil = [&](std::string_view end) {
        while (!received.ends_with(end)) {
            const std::string more = connection.ReceiveSome(1000);
            if (more.empty()) return false;
            received += more;
        }
        return true;
    };
    EXPECT_TRUE(receivesUntil("\r\n\r\n"));
    Write(pipe, "one");
    EXPECT_TRUE(receivesUntil("\r\n3\r\none\r\n"));
    Write(pipe, "three");
    EXPECT_TRUE(receivesUntil("\r\n5\r\nthree\r\n"));
    pipe.close(std::ios_base::out).get();
    EXPECT_TRUE(receivesUntil("\r\n0\r\n\r\n"));
}

TEST_F(HandlersTest, AStreamIsCutToItsLength) {
    const std::string content(100'000, 'x');
    Serve(Replies([&content] {
        http_response response(200);
        response.set_body(bytestream::open_istream(content), 70'000, "text/plain");
        return response;
    }));
    CHttpConnection connection(m_port);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(Ask(connection, Get(kHost)) == "200 " + content.substr(0, 70'000));
}

TEST_F(HandlersTest, AReplyThatCannotBeCompletedHasNoCleanEnd) {
    const auto fails = [](std::optional<std::size_t> length) {
        return [length] {
            Pipe pipe;
            Write(pipe, "begin");
            auto response = Streaming(pipe);
            if (length) response.headers().set_content_length(*length);
            pipe.close(std::ios_base::out, std::make_exception_ptr(std::runtime_error("broken"))).get();
            return response;
        };
    };
    const auto isShort = [] {
        http_response response(200);
        response.set_body(bytestream::open_istream(std::string("begin")), 10, "text/plain");
        return response;
    };
    const struct {
        const char* what;
        std::string request;
        std::function<http_response()> make;
    } cases[] = {{"fails, chunked", Get(kHost), fails(std::nullopt)},
                 {"fails, to the connection's end", OldGet(), fails(std::nullopt)},
                 {"fails, of known length", Get(kHost), fails(10)},
                 {"shorter than its length", Get(kHost), isShort},
                 {"shorter than its length, old client", OldGet(), isShort}};
    const std::function<http_response()>* make = nullptr;
    Serve(Replies([&make] { return (*make)(); }));
    for (const auto& [what, request, maker] : cases) {
        make = &maker;
        End end = End::None;
        const std::string bytes = Everything(request, end);
        EXPECT_EQ(end, End::Aborted) << what;
        EXPECT_FALSE(bytes.ends_with("0\r\n\r\n")) << what;
    }
}

TEST_F(HandlersTest, RepliesWithoutBodySayNothingOfItsLength) {
    const auto shows = [this](const std::string& request, std::uint16_t status) {
        End end = End::None;
        std::string bytes = Everything(request, end);
        EXPECT_EQ(end, End::Clean) << status;
        EXPECT_TRUE(bytes.starts_with("HTTP/1.1 " + std::to_string(status))) << bytes;
        const std::size_t body = bytes.find("\r\n\r\n") + 4;
        std::string shown = bytes.substr(body);
        for (const char* field : {"Content-Length", "Transfer-Encoding"}) {
            const std::size_t found = bytes.find(field);
            if (found < body) shown += bytes.substr(found, bytes.find('\r', found) - found);
        }
        return shown;
    };
    std::uint16_t status = 0;
    bool hasBody = true;
    Serve(Replies([&] {
        http_response response(status);
        if (hasBody) response.set_body("body!");
        response.headers().set_content_length(5);
        return response;
    }));
    const std::string close = "Connection: close\r\n";
    const std::string head = "HEAD / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
    for (const bool withBody : {true, false}) {
        hasBody = withBody;
        for (const std::uint16_t without : {204, 304}) {
            status = without;
            EXPECT_EQ(shows(Get(kHost, "/", close), status), "") << status;
        }
        status = 200;
        EXPECT_EQ(shows(head, 200), "Content-Length: 5") << withBody;
    }
}

TEST_F(HandlersTest, TheBodyOfAReplyIsClosedWhenItsClientHasLeft) {
    Pipe pipe;
    Serve(Replies([&pipe] { return Streaming(pipe); }));
    for (const char* begin : {"", "some"}) {
        pipe = Pipe();
        Write(pipe, begin);
        CHttpConnection connection(m_port);
        ASSERT_TRUE(connection.Send(Get(kHost)));
        EXPECT_TRUE(connection.WaitForBytes());
        connection.Leave();
        WaitUntil([&pipe] { return !pipe.can_read(); }, "the body's end");
        pipe.close(std::ios_base::out).get();
    }
}

TEST_F(HandlersTest, AReplyToAClientThatHasLeftIsClosed) {
    CWaitingRoom room;
    Pipe pipe;
    Serve([&](const http_request& request) {
        room.Wait();
        request.reply(Streaming(pipe));
    });
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    WaitUntil([&] { return room.Entered() == 1; }, "the handler");
    connection.Leave();
    room.Open();
    WaitUntil([&pipe] { return !pipe.can_read(); }, "the body's end");
    pipe.close(std::ios_base::out).get();
    EXPECT_EQ(room.Entered(), 1u);
}

TEST_F(HandlersTest, AHandlerIsToldThatItsClientHasLeft) {
    std::promise<void> waits;
    std::promise<bool> told;
    Serve([&](const http_request& request) {
        const auto abandoned = WorkAbandoned();
        waits.set_value();
        told.set_value(WaitForAny({abandoned.get()}, std::chrono::minutes(1)).IsOk());
        request.reply(200);
    });
    EXPECT_EQ(WorkAbandoned(), nullptr) << "of no work at all";
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost)));
    waits.get_future().wait();
    connection.Leave();
    EXPECT_TRUE(told.get_future().get());
}

TEST_F(HandlersTest, ARequestIsHandledOnlyWhenTheReplyBeforeItIsSent) {
    std::promise<http_request> first;
    std::atomic<int> handled = 0;
    Serve([&](const http_request& request) {
        if (handled++ == 0) {
            first.set_value(request);
        } else {
            request.reply(200, request.relative_uri().path());
        }
    });
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(Get(kHost, "/1") + Get(kHost, "/2") + Get(kHost, "/3")));
    const auto request = first.get_future().get();
    EXPECT_EQ(handled, 1);
    request.reply(200, "/1");
    for (const char* path : {"/1", "/2", "/3"}) EXPECT_EQ(connection.Receive().value().body, path);
}

TEST_F(HandlersTest, AThousandRequestsInOneWriteAreAnsweredInOrder) {
    Serve([](const http_request& request) {
        // Another thread goes on with the rest each time.
        if (request.relative_uri().path().ends_with("00")) AboutToWait();
        request.reply(200, request.relative_uri().path());
    });
    std::string requests;
    for (int i = 0; i < 1000; ++i) requests += Get(kHost, "/" + std::to_string(i));
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send(requests));
    for (int i = 0; i < 1000; ++i) {
        const auto reply = connection.Receive();
        ASSERT_TRUE(reply.has_value()) << i;
        EXPECT_EQ(reply->body, "/" + std::to_string(i));
    }
}

TEST_F(HandlersTest, ABodyIsCompleteBeforeItsHandlerRuns) {
    Serve([](http_request request) {
        const auto body = request.extract_string(true);
        request.reply(200, body.is_done() ? body.get() : "not there yet");
    });
    CHttpConnection connection(m_port);
    const std::string other = "POST / HTTP/1.0\r\nHost: 127.0.0.1\r\nContent-Length: 1\r\n\r\nx";
    const auto sends = [&](std::initializer_list<std::string_view> parts) {
        for (std::string_view part : parts) {
            ASSERT_TRUE(connection.Send(part));
            // So that the parts arrive apart.
            EXPECT_EQ(Ask(m_port, other), "200 x");
        }
    };
    sends({"POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 6\r\n\r\n", "abc", "def"});
    EXPECT_EQ(connection.Receive().value().body, "abcdef");
    sends({"POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc", "\r\n3\r\nd",
           "ef\r\n0\r\n", "\r\n"});
    EXPECT_EQ(connection.Receive().value().body, "abcdef");
    const std::string large(900'000, 'x');
    sends({"POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 900000\r\n\r\n", large});
    EXPECT_TRUE(connection.Receive().value().body == large);
}

TEST_F(HandlersTest, AClientThatAwaitsItIsToldToGoOn) {
    Serve([](http_request request) { request.reply(200, BodyOf(request)); });
    CHttpConnection connection(m_port);
    const std::string head =
        "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 3\r\nExpect: 100-continue\r\n\r\n";
    EXPECT_EQ(Ask(connection, head), "100 ");
    EXPECT_EQ(Ask(connection, "abc"), "200 abc");
    EXPECT_EQ(Ask(connection, head + "abc"), "200 abc") << "who does not wait is not told";
}

}  // namespace
}  // namespace quorbel
