#include "tests/support/service/TestHandlers.h"

#include <cpprest/containerstream.h>

#include "http/Authenticator.h"
#include "http/Listener.h"
#include "http/RequestHandlerFactory.h"

namespace quorbel {

namespace {

using web::http::http_request;

class CTextResponse final : public CHTTPServer::CRequestHandler::CResponse {
 public:
    CTextResponse(const std::wstring& text, HeaderMap headers) : CResponse(CacheClass::Dynamic) {
        m_headers = std::move(headers);
        m_body = concurrency::streams::bytestream::open_istream(ToUtf8(text));
    }
    std::uint16_t StatusCode() override { return 200; }
    std::wstring ContentType() const override { return L"text/plain"; }
};

class CEchoHandler final : public CHTTPServer::CRequestHandler {
 public:
    CEchoHandler(std::wstring kind, const std::wstring& file)
        : m_text(kind + L" " + file.substr(file.find_last_of(L"/\\") + 1) + L"\n") {}
    std::shared_ptr<CResponse> CreateResponse(const http_request&, const UserIdentity& user,
                                              const TextMap& parameters) override {
        std::wstring text = m_text + L"user " + user.Text() + L"\n";
        for (const auto& [name, value] : parameters)
            text.append(name).append(L"=").append(value).append(L"\n");
        return std::make_shared<CTextResponse>(
            text, HeaderMap{{L"Server", L"Own/1"}, {L"Content-Security-Policy", L"default-src 'none'"}});
    }

 private:
    const std::wstring m_text;
};

class CFailingHandler final : public CHTTPServer::CRequestHandler {
 public:
    std::shared_ptr<CResponse> CreateResponse(const http_request&, const UserIdentity&,
                                              const TextMap&) override {
        throw std::runtime_error("the handler failed");
    }
};

std::wstring HeaderOf(const http_request& request, const char* name) {
    const auto found = request.headers().find(name);
    return found == request.headers().end() ? std::wstring() : FromUtf8(found->second);
}

class CTestAuthenticator final : public CHTTPServer::IAuthenticator {
 public:
    Identity Identify(const http_request& request) override {
        const std::wstring level = HeaderOf(request, "X-Level");
        return {UserIdentity(HeaderOf(request, "X-User")), level == L"3"   ? AccessLevel::Admin
                                                           : level == L"2" ? AccessLevel::User
                                                                           : AccessLevel::Anon};
    }
    std::wstring ReadCookie(const http_request& request) override { return HeaderOf(request, "Cookie"); }
};

class CTestLocation final : public CHTTPServer::CLocation::CInstance {
 public:
    std::shared_ptr<CHTTPServer::CRequestHandler> CreateRequestHandler(const http_request& request) override {
        if (request.method() != web::http::methods::POST) return nullptr;
        return std::make_shared<CEchoHandler>(L"location", L"");
    }
};

void RegisterKind(const std::wstring& kind) {
    CRequestHandlerFactory::Register(kind, [kind](const std::wstring&, const std::wstring& file) {
        return std::make_shared<CEchoHandler>(kind, file);
    });
}

}  // namespace

void RegisterTestHandlers() {
    RegisterKind(L"SQL");
    RegisterKind(L"SEARCH");
    CRequestHandlerFactory::Register(L"FAIL", [](const std::wstring&, const std::wstring&) {
        return std::make_shared<CFailingHandler>();
    });
    CHTTPServer::CLocation::RegisterHandler(
        L"TestAuthenticate", [](const TextMap&, CHTTPServer::CListener& listener) {
            listener.SetAuthenticator(std::make_shared<CTestAuthenticator>());
            return std::make_shared<CTestLocation>();
        });
    CHTTPServer::CLocation::RegisterHandler(L"TestPost", [](const TextMap&, CHTTPServer::CListener&) {
        return std::make_shared<CTestLocation>();
    });
}

}  // namespace quorbel
