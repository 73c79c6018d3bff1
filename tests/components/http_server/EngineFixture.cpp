#include "tests/components/http_server/EngineFixture.h"

#include "components/certificates/CertificateBinding.h"
#include "components/http_server/Limits.h"
#include "platform/Text.h"
#include "platform/registry/SqliteRegistry.h"

namespace quorbel {

CEngineFixture::CEngineFixture()
    : m_registry(OpenSqliteRegistry(m_folder.Path()).Value()), m_localMachine(m_registry.LocalMachine()) {
    StartServer();
}

CEngineFixture::~CEngineFixture() {
    while (!m_listeners.empty()) Close(*m_listeners.front());
}

void CEngineFixture::SetLimit(const wchar_t* name, std::uint32_t number) {
    const auto key = m_localMachine->Create(CHttpLimits::kKey);
    ASSERT_EQ(key.Value()->Set(name, CValue::FromNumber32(number)), ErrorCode::Success);
}

void CEngineFixture::StartServer() {
    m_server.reset();
    m_server = IHttpServer::Start({m_localMachine, m_clock,
                                   [this](const std::wstring& sentence) { m_reports.Add(sentence); }})
                   .Value();
}

CEngineFixture::Listener& CEngineFixture::Open(const std::string& host, int port, const Handler& handler,
                                               const std::string& scheme) {
    web::http::experimental::listener::http_listener_config configuration;
    const web::uri address(scheme + "://" + host + ":" + std::to_string(port) + "/");
    auto listener = std::make_unique<Listener>(address, configuration);
    listener->support(handler);
    listener->open().get();
    return *m_listeners.emplace_back(std::move(listener));
}

std::string CEngineFixture::OpenFailure(const std::string& host, int port, const std::string& scheme) {
    try {
        Close(Open(host, port, Says(""), scheme));
        return "";
    } catch (const std::exception& exception) {
        return exception.what();
    }
}

void CEngineFixture::Close(Listener& listener) {
    listener.close().get();
    m_listeners.remove_if([&listener](const auto& known) { return known.get() == &listener; });
}

void CEngineFixture::Bind(const std::string& host, int port, const CTestCertificate& files) {
    const auto name = FromUtf8(host + ":" + std::to_string(port));
    const auto key = m_localMachine->Create(std::wstring(kCertificateBindingsKey) + L"\\" + name);
    for (const auto& [value, path] : {std::pair(kCertificateFileValue, files.certificate),
                                      std::pair(kPrivateKeyFileValue, files.privateKey)}) {
        ASSERT_EQ(key.Value()->Set(value, CValue::FromText(FromUtf8(path))), ErrorCode::Success);
    }
}

CEngineFixture::Handler CEngineFixture::Says(const std::string& text) {
    return Replies([text] {
        Response response(200);
        response.set_body(text);
        return response;
    });
}

std::string CEngineFixture::BodyOf(web::http::http_request request) {
    // A GET without a body has no stream.
    return request.body().is_valid() ? request.extract_string(true).get() : "";
}

CEngineFixture::Handler CEngineFixture::Replies(std::function<Response()> make) {
    return [make = std::move(make)](const web::http::http_request& request) { request.reply(make()); };
}

std::string CEngineFixture::Get(std::string_view host, std::string_view target, std::string_view lines) {
    std::string request("GET ");
    return request.append(target)
        .append(" HTTP/1.1\r\nHost: ")
        .append(host)
        .append("\r\n")
        .append(lines)
        .append("\r\n");
}

std::string CEngineFixture::Ask(CHttpConnection& connection, std::string_view request) {
    if (!connection.Send(request)) return "(none)";
    const auto reply = connection.Receive();
    return reply ? std::to_string(reply->status) + " " + reply->body : "(none)";
}

void CEngineFixture::WaitUntil(const std::function<bool()>& condition, const char* what) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << what << " never came";
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

}  // namespace quorbel
