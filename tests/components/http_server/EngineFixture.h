#pragma once

#include <cpprest/http_listener.h>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <list>
#include <memory>
#include <string>

#include "components/http_server/HttpServer.h"
#include "tests/support/FaultyRegistry.h"
#include "tests/support/HandClock.h"
#include "tests/support/Sentences.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/service/HttpConnection.h"
#include "tests/support/service/TestCertificate.h"

namespace quorbel {

/// An HTTP server over a registry and a clock of its own, whose hosts are listeners of the HTTP library.
class CEngineFixture : public ::testing::Test {
 protected:
    using Listener = web::http::experimental::listener::http_listener;
    using Handler = std::function<void(web::http::http_request)>;
    using Response = web::http::http_response;

    CEngineFixture();
    ~CEngineFixture() override;

    /// Sets one of the bounds.
    void SetLimit(const wchar_t* name, std::uint32_t number);
    /// Starts the server again, which reads its bounds then. No listener is open.
    void StartServer();
    void StopServer() { m_server.reset(); }

    /// Opens a host; throws what the library does.
    Listener& Open(const std::string& host, int port, const Handler& handler,
                   const std::string& scheme = "http");
    /// Why the host does not open; empty when it does.
    std::string OpenFailure(const std::string& host, int port, const std::string& scheme = "http");
    void Close(Listener& listener);
    /// Binds files to an https host.
    void Bind(const std::string& host, int port, const CTestCertificate& files);

    /// A handler that answers 200 with that text.
    static Handler Says(const std::string& text);
    /// The body of a request, which has come whole.
    static std::string BodyOf(web::http::http_request request);
    /// One that hands out what `make` makes.
    static Handler Replies(std::function<Response()> make);
    /// "GET target HTTP/1.1" with a Host field, and further lines.
    static std::string Get(std::string_view host, std::string_view target = "/", std::string_view lines = "");
    /// Sends a request and shows the reply as "status body"; "(none)" when there is no whole one.
    static std::string Ask(CHttpConnection& connection, std::string_view request);
    static std::string Ask(int port, std::string_view request) {
        CHttpConnection connection(port);
        return Ask(connection, request);
    }
    /// Waits for a condition that other threads bring about; fails the test when it never comes.
    static void WaitUntil(const std::function<bool()>& condition, const char* what);

    CTemporaryFolder m_folder;
    CFaultyRegistry m_registry;
    std::shared_ptr<IKey> m_localMachine;
    CHandClock m_clock;
    CSentences m_reports;
    std::unique_ptr<IHttpServer> m_server;
    std::list<std::unique_ptr<Listener>> m_listeners;
};

/// Handlers that wait in it until it is opened.
class CWaitingRoom {
 public:
    ~CWaitingRoom() { Open(); }
    void Wait() {
        std::unique_lock lock(m_lock);
        ++m_entered;
        m_changed.wait(lock, [this] { return m_isOpen; });
    }
    std::size_t Entered() const {
        const std::lock_guard lock(m_lock);
        return m_entered;
    }
    void Open() {
        const std::lock_guard lock(m_lock);
        m_isOpen = true;
        m_changed.notify_all();
    }

 private:
    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    std::size_t m_entered = 0;
    bool m_isOpen = false;
};

}  // namespace quorbel
