#pragma once

#include "LibService/WorkItems.h"
#include "auth/AuthenticateHandler.h"
#include "tests/auth/users/QuickHasher.h"
#include "tests/support/service/ServiceFixture.h"

namespace quorbel {

/// A key storage provider that passes everything on to another one, save while it is to fail.
class CFaultyKeys final : public IKeyStorageProvider {
 public:
    explicit CFaultyKeys(std::unique_ptr<IKeyStorageProvider> target) : m_target(std::move(target)) {}
    SECURITY_STATUS OpenKey(std::string_view name, std::unique_ptr<IStoredKey>& key) override {
        return m_failure != kKeyStorageSuccess ? m_failure.load() : m_target->OpenKey(name, key);
    }
    SECURITY_STATUS CreatePersistedKey(std::string_view name, std::unique_ptr<IStoredKey>& key) override {
        return m_failure != kKeyStorageSuccess ? m_failure.load() : m_target->CreatePersistedKey(name, key);
    }
    void Fail(SECURITY_STATUS failure) { m_failure = failure; }

 private:
    const std::unique_ptr<IKeyStorageProvider> m_target;
    std::atomic<SECURITY_STATUS> m_failure{kKeyStorageSuccess};
};

/// A host with users, an "Authenticate" location at /auth and a folder for each level, over hashes that cost
/// no time.
class CAuthenticationFixture : public CServiceFixture {
 protected:
    using CAuthenticator = CHTTPServer::CAuthenticator;
    using Outcome = CAuthenticator::Outcome;
    static constexpr const wchar_t* kCookie = L"QbAuth";
    static constexpr std::chrono::seconds kTimeout{100};

    CAuthenticationFixture();
    ~CAuthenticationFixture() override;

    /// Serves the host; its port.
    int StartHost();

    std::unique_ptr<IKey> UsersKey() { return HostKey(kHost)->Create(L"Users").Value(); }
    std::unique_ptr<IKey> UserKey(const std::wstring& name) { return UsersKey()->Create(name).Value(); }
    /// A user with a hashed password and an identity, so that loading it changes nothing and hashes nothing.
    void AddUser(const std::wstring& name, const std::wstring& password, bool isAdministrator = false);
    void SetUserValue(const std::wstring& name, const std::wstring& value, const CValue& content);

    CAuthenticator::Platform Platform();
    /// An authenticator of the host, without the host being served.
    std::shared_ptr<CAuthenticator> NewAuthenticator(std::uint32_t timeout = kTimeout.count());
    CStatus Initialize(CAuthenticator& authenticator, const std::wstring& cookieName = kCookie);
    /// "name/level" of who sends the cookie.
    static std::wstring CallerWith(CAuthenticator& authenticator, const std::string& token);
    static web::http::http_request RequestWith(const std::string& cookies);

    std::shared_ptr<CQuickHasher> m_hasher = std::make_shared<CQuickHasher>();
    std::unique_ptr<CFaultyKeys> m_keys;
    std::unique_ptr<CThreadSet> m_threads;
    std::unique_ptr<CWorkItems> m_work;
};

}  // namespace quorbel
