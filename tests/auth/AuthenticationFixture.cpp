#include "tests/auth/AuthenticationFixture.h"

#include "platform/crypto/Digest.h"

namespace quorbel {

CAuthenticationFixture::CAuthenticationFixture() {
    std::filesystem::create_directory(Path("keys"));
    m_keys = std::make_unique<CFaultyKeys>(OpenKeyStorageProvider(Path("keys")));
    m_threads = CThreadSet::Create(SystemClock()).Value();
    m_work = CWorkItems::Create(*m_threads).Value();
    EXPECT_NE(UsersKey(), nullptr);
}

CAuthenticationFixture::~CAuthenticationFixture() {
    End();
    m_work->Stop();
    m_work->Wait();
}

CAuthenticationFixture::CAuthenticator::Platform CAuthenticationFixture::Platform() {
    return {*m_registry, *m_hasher, *m_keys, *m_work, m_clock};
}

int CAuthenticationFixture::StartHost() {
    AuthenticateHandler::Register(Platform());
    const int port = AddDefaultHost({{L"Anon Root", CValue::FromText(Folder("anon"))},
                                     {L"Admin Root", CValue::FromText(Folder("admin"))}});
    AddLocation(kHost, L"/auth", L"Authenticate");
    const auto location = HostKey(kHost)->Create(L"Locations\\/auth").Value();
    EXPECT_EQ(location->Set(L"Auth Cookie", CValue::FromText(kCookie)), ErrorCode::Success);
    const auto timeout = CValue::FromNumber32(kTimeout.count());
    EXPECT_EQ(location->Set(L"Session Timeout", timeout), ErrorCode::Success);
    Start();
    return port;
}

void CAuthenticationFixture::AddUser(const std::wstring& name, const std::wstring& password,
                                     bool isAdministrator) {
    CPassword hashed(password);
    ASSERT_EQ(hashed.SetPassword(*m_hasher), ErrorCode::Success);
    const auto transaction = m_registry->Begin().Value();
    const auto user = UserKey(name);
    ASSERT_EQ(hashed.Write(*user), ErrorCode::Success);
    const std::string identity = Sha256({ToUtf8(name)}).substr(0, 16);
    ASSERT_EQ(user->Set(L"Identity", {ValueType::Binary, identity}), ErrorCode::Success);
    if (isAdministrator) {
        ASSERT_EQ(user->Set(L"Administrator", CValue::FromNumber32(1)), ErrorCode::Success);
    }
    ASSERT_EQ(transaction->Commit(), ErrorCode::Success);
}

void CAuthenticationFixture::SetUserValue(const std::wstring& name, const std::wstring& value,
                                          const CValue& content) {
    ASSERT_EQ(UserKey(name)->Set(value, content), ErrorCode::Success);
}

std::shared_ptr<CHTTPServer::CAuthenticator> CAuthenticationFixture::NewAuthenticator(std::uint32_t timeout) {
    auto authenticator = std::make_shared<CAuthenticator>(Platform(), L"example.org", timeout);
    const CStatus status = Initialize(*authenticator);
    EXPECT_TRUE(status.IsOk()) << ToUtf8(status.Text());
    return authenticator;
}

CStatus CAuthenticationFixture::Initialize(CAuthenticator& authenticator, const std::wstring& cookieName) {
    return authenticator.Initialize(*m_service, L"/auth", CRegistryKey(HostKey(kHost)), cookieName);
}

web::http::http_request CAuthenticationFixture::RequestWith(const std::string& cookies) {
    web::http::http_request request;
    if (!cookies.empty()) request.headers()["Cookie"] = cookies;
    return request;
}

std::wstring CAuthenticationFixture::CallerWith(CAuthenticator& authenticator, const std::string& token) {
    const auto caller = authenticator.Identify(RequestWith(ToUtf8(kCookie) + "=" + token));
    return caller.user.Text() + L"/" + std::to_wstring(static_cast<int>(caller.level));
}

}  // namespace quorbel
