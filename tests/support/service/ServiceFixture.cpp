#include "tests/support/service/ServiceFixture.h"

#include "LibService/MessageIds.h"
#include "components/archive/LocalArchive.h"
#include "data/SystemInfoHandler.h"
#include "platform/registry/SqliteRegistry.h"

namespace quorbel {

namespace {

// Before any test makes a task.
const bool kRunsInPlace = (IHttpServer::RunContinuationsInPlace(), true);

constexpr wchar_t kHosts[] = L"Software\\Quorbel\\Quorbel HTTP Service\\Hosts";

}  // namespace

CServiceFixture::CServiceFixture() {
    std::filesystem::create_directory(Path("registry"));
    m_registry = std::make_shared<CFaultyRegistry>(OpenSqliteRegistry(Path("registry")).Value());
    m_localMachine = m_registry->LocalMachine();
    m_archive.reset(new CComRegistration(RegisterLocalArchive(m_localMachine)));
    m_folders = CreateFolderSearch().Value();
    m_stop = CEvent::Create(EventReset::Manual).Value();
    SystemInfoHandler::Register();
    EXPECT_TRUE(m_localMachine->Create(kHosts).IsOk());
    StartHttpServer();
    m_service = std::make_unique<CQuorbelHTTPService>(
        CHTTPServer::Environment{*m_folders, m_trace, m_clock, &m_published}, *m_localMachine, m_stop);
}

CServiceFixture::~CServiceFixture() {
    End();
}

void CServiceFixture::End() {
    m_registry->Faults().FailNothing();
    if (m_thread.joinable()) Ignore(Stop());
    m_service.reset();
}

void CServiceFixture::StartHttpServer() {
    m_httpServer.reset();
    m_httpServer = IHttpServer::Start({m_localMachine, m_clock,
                                       [this](const std::wstring& sentence) { m_httpReports.Add(sentence); }})
                       .Value();
}

std::wstring CServiceFixture::Folder(std::string_view name) {
    std::filesystem::create_directories(Path(name));
    return FromUtf8(Path(name).string());
}

std::unique_ptr<IKey> CServiceFixture::HostKey(const std::wstring& host) {
    return m_localMachine->Create(std::wstring(kHosts) + L"\\" + host).Value();
}

void CServiceFixture::AddHost(const std::wstring& host, int port, const Values& values) {
    auto transaction = m_registry->Begin().Value();
    const auto key = HostKey(host);
    ASSERT_EQ(key->Set(L"Protocol", CValue::FromText(L"http")), ErrorCode::Success);
    ASSERT_EQ(key->Set(L"Port", CValue::FromText(std::to_wstring(port))), ErrorCode::Success);
    for (const auto& [name, value] : values) ASSERT_EQ(key->Set(name, value), ErrorCode::Success);
    ASSERT_EQ(transaction->Commit(), ErrorCode::Success);
}

void CServiceFixture::SetText(const std::wstring& host, const std::wstring& name, const std::wstring& text) {
    ASSERT_EQ(HostKey(host)->Set(name, CValue::FromText(text)), ErrorCode::Success);
}

void CServiceFixture::DeleteHost(const std::wstring& host) {
    ASSERT_EQ(m_localMachine->DeleteTree(std::wstring(kHosts) + L"\\" + host), ErrorCode::Success);
}

int CServiceFixture::AddDefaultHost(const Values& values) {
    const int port = FreePort();
    Values all = values;
    all.emplace_back(L"User Root", CValue::FromText(Folder("root")));
    AddHost(kHost, port, all);
    return port;
}

void CServiceFixture::AddLocation(const std::wstring& host, const std::wstring& path,
                                  const std::wstring& handler) {
    const auto key = HostKey(host)->Create(L"Locations\\" + path).Value();
    ASSERT_EQ(key->Set(L"Handler", CValue::FromText(handler)), ErrorCode::Success);
}

void CServiceFixture::Start(std::size_t opened) {
    m_thread = std::thread([this] {
        m_status = m_service->Run();
        // So that a test that waits for endpoints goes on when there will be none.
        for (int i = 0; i < 2000 && !m_status.IsOk(); ++i) m_trace.Trace(*m_service, trace::kListenerOpened);
    });
    ASSERT_TRUE(m_trace.WaitFor(trace::kListenerOpened, opened)) << "the service did not open";
}

CStatus CServiceFixture::Stop() {
    m_stop->Set();
    return WaitForEnd();
}

CStatus CServiceFixture::WaitForEnd() {
    m_thread.join();
    return m_status;
}

CHttpReply CServiceFixture::Get(int port, std::string_view target, std::string_view headerLines) {
    CHttpConnection connection(port);
    EXPECT_TRUE(connection.IsConnected());
    const auto reply = connection.Request("GET", target, headerLines);
    EXPECT_TRUE(reply.has_value()) << "no whole reply to " << target;
    return reply.value_or(CHttpReply());
}

CHttpReply CServiceFixture::GetUntil(int port, std::string_view target,
                                     const std::function<bool(const CHttpReply&)>& condition) {
    CHttpReply reply;
    WaitUntil(
        [&] {
            CHttpConnection connection(port);
            const auto received = connection.Request("GET", target);
            if (received) reply = *received;
            return received && condition(reply);
        },
        "the reply");
    return reply;
}

void CServiceFixture::WaitUntil(const std::function<bool()>& condition, const char* what) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << what << " never came";
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

std::vector<CEventEntry> WithId(const std::vector<CEventEntry>& entries, std::uint32_t id) {
    std::vector<CEventEntry> found;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
                 [id](const CEventEntry& entry) { return entry.id == id; });
    return found;
}

}  // namespace quorbel
