#include "components/http_server/HttpServer.h"

#include <cpprest/details/http_server.h>
#include <cpprest/details/http_server_api.h>

#include "components/http_server/Exchange.h"
#include "components/http_server/HostServer.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using web::http::experimental::details::http_server_api;
using web::http::experimental::listener::details::http_listener_impl;

/// Runs continuations where the task before them ended. (The library's own scheduler wakes a thread for
/// each.)
class CInPlaceScheduler final : public pplx::scheduler_interface {
 public:
    void schedule(pplx::TaskProc_t work, void* argument) override { work(argument); }
};

/// What the library sees of the server. The library owns it.
class CLibraryServer final : public web::http::experimental::details::http_server {
 public:
    CLibraryServer(CHostServer& hosts, const http_listener_impl& keeper) noexcept
        : m_hosts(hosts), m_keeper(keeper) {}

    pplx::task<void> start() override { return pplx::task_from_result(); }
    pplx::task<void> stop() override { return pplx::task_from_result(); }
    pplx::task<void> register_listener(http_listener_impl* listener) override {
        try {
            if (listener != &m_keeper) m_hosts.Add(*listener);
        } catch (const std::exception&) {
            return pplx::task_from_exception<void>(std::current_exception());
        }
        return pplx::task_from_result();
    }
    pplx::task<void> unregister_listener(http_listener_impl* listener) override {
        if (listener != &m_keeper) m_hosts.Remove(*listener);
        return pplx::task_from_result();
    }
    pplx::task<void> respond(web::http::http_response response) override {
        CExchange::Respond(std::move(response));
        return m_sent;
    }

 private:
    CHostServer& m_hosts;
    const http_listener_impl& m_keeper;
    const pplx::task<void> m_sent = pplx::task_from_result();
};

/// The server, registered with the library. When its last listener closes, the library drops a registered
/// server and goes back to its own: so one listener that serves nothing stays open as long as this lives.
class CHttpServer final : public IHttpServer {
 public:
    CHttpServer(CEnvironment environment, ErrorCode& error)
        : m_hosts(std::move(environment), error), m_keeper(web::uri("http://keeper.invalid/")) {
        if (error != ErrorCode::Success) return;
        http_server_api::register_server_api(std::make_unique<CLibraryServer>(m_hosts, m_keeper));
        m_keeper.open().wait();
    }
    ~CHttpServer() override { m_keeper.close().wait(); }

 private:
    CHostServer m_hosts;
    http_listener_impl m_keeper;
};

}  // namespace

void IHttpServer::RunContinuationsInPlace() {
    static const bool isDone = [] {
        pplx::set_ambient_scheduler(std::make_shared<CInPlaceScheduler>());
        return true;
    }();
    Ignore(isDone);
}

CResult<std::unique_ptr<IHttpServer>> IHttpServer::Start(CEnvironment environment) {
    const auto report = environment.report;
    try {
        RunContinuationsInPlace();
        ErrorCode error = ErrorCode::Success;
        auto server = std::make_unique<CHttpServer>(std::move(environment), error);
        if (error != ErrorCode::Success) return error;
        return std::unique_ptr<IHttpServer>(std::move(server));
    } catch (const std::exception& exception) {
        report(FromUtf8(exception.what()));
        return ErrorCode::NoSystemResources;
    }
}

}  // namespace quorbel
