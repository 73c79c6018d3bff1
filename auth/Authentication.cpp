#include "auth/Authentication.h"

#include <mutex>
#include <shared_mutex>

#include "LibService/MessageIds.h"
#include "auth/CookieKey.h"
#include "auth/Token.h"
#include "auth/UserLoader.h"
#include "auth/passkeys/Challenge.h"
#include "auth/users/UserEntry.h"
#include "platform/crypto/Digest.h"

namespace quorbel {

namespace {

AccessLevel LevelOf(bool isAdministrator) {
    return isAdministrator ? AccessLevel::Admin : AccessLevel::User;
}

/// Sets its event however a scope is left.
class CSetAtEnd {
 public:
    explicit CSetAtEnd(std::shared_ptr<CEvent> event) noexcept : m_event(std::move(event)) {}
    ~CSetAtEnd() { m_event->Set(); }
    CSetAtEnd(const CSetAtEnd&) = delete;
    CSetAtEnd& operator=(const CSetAtEnd&) = delete;

 private:
    const std::shared_ptr<CEvent> m_event;
};

}  // namespace

CHTTPServer::CAuthenticator::CAuthenticator(const Platform& platform, std::wstring relyingPartyId,
                                            std::uint32_t sessionTimeout)
    : m_platform(platform),
      m_relyingPartyId(std::move(relyingPartyId)),
      m_passkeyEvents(platform.clock),
      m_sessions(sessionTimeout) {}

CHTTPServer::CAuthenticator::~CAuthenticator() {
    if (!m_watcherEnded) return;
    m_watching.Abandon();
    m_stop->Set();
    Ignore(WaitForAny({m_watcherEnded.get()}));
}

CStatus CHTTPServer::CAuthenticator::Initialize(CHTTPServer&, const std::wstring&,
                                                const CRegistryKey& hostKey, const std::wstring& cookieName) {
    m_relyingPartyHash = Sha256({ToUtf8(m_relyingPartyId)});
    if (m_relyingPartyHash.empty()) return SystemError(ErrorCode::GenFailure, L"SHA256");
    RETURN_IF_FAILED(EnsureCookieKey(m_platform.keys));
    RETURN_IF_FAILED(OpenUsers(hostKey));
    m_cookieName = cookieName;
    return CCookiePattern::Create(cookieName, m_cookiePattern);
}

CStatus CHTTPServer::CAuthenticator::OpenUsers(const CRegistryKey& hostKey) {
    auto users = hostKey.OpenKey(kUsersKey, KeyAccess::ReadWrite);
    if (!users.IsOk()) return {};
    m_usersKey = std::move(users).Value();
    auto changed = CEvent::Create(EventReset::Auto);
    if (!changed.IsOk()) return SystemError(changed.Error());
    m_changed = std::move(changed).Value();
    auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return SystemError(stop.Error());
    m_stop = std::move(stop).Value();
    // What changes while the users are read is loaded after them.
    RETURN_IF_SYSTEM_ERROR(ArmWatch());
    RETURN_IF_FAILED(LoadUsers());
    return StartWatcher();
}

ErrorCode CHTTPServer::CAuthenticator::ArmWatch() {
    return m_usersKey.WatchKey(WatchScope::Subtree, WatchFilter::NamesAndValues, m_changed);
}

CStatus CHTTPServer::CAuthenticator::StartWatcher() {
    auto ended = CEvent::Create(EventReset::Manual);
    if (!ended.IsOk()) return SystemError(ended.Error());
    m_watcherEnded = std::move(ended).Value();
    // Set when the work ends, and when it is dropped before it began.
    const auto atEnd = std::make_shared<CSetAtEnd>(m_watcherEnded);
    return m_platform.work.Run([this, atEnd](CEvent& stop) { return Watch(stop); }, "RegistryChangeWorker");
}

CStatus CHTTPServer::CAuthenticator::Watch(CEvent& stop) {
    const CAbandonmentScope watching(m_watching);
    for (;;) {
        const auto woken = WaitForAny({m_changed.get(), &stop, m_stop.get()});
        if (!woken.IsOk()) return SystemError(woken.Error());
        if (woken.Value() != 0) return {};
        RETURN_IF_SYSTEM_ERROR(ArmWatch());
        RETURN_IF_FAILED(LoadUsers());
    }
}

CStatus CHTTPServer::CAuthenticator::LoadUsers() {
    if (!m_usersKey.IsOpen()) return {};
    HashedPasswords hashed;
    for (;;) {
        std::uint64_t generation = 0;
        {
            const std::shared_lock lock(m_usersLock);
            generation = m_generation;
        }
        std::optional<CUserTable> loaded;
        RETURN_IF_FAILED(LoadUserTable(
            {m_platform.registry, m_usersKey, m_platform.hasher, m_platform.keys},
            [this] { return m_stop->Test(); }, hashed, loaded));
        if (!loaded || Install(*loaded, generation)) return {};
    }
}

bool CHTTPServer::CAuthenticator::Install(CUserTable& loaded, std::uint64_t generation) {
    const std::lock_guard users(m_usersLock);
    if (m_generation != generation) return false;
    const std::lock_guard cookies(m_cookieLock);
    const std::lock_guard sessions(m_sessionLock);
    const std::lock_guard challenges(m_challengeLock);
    CarryOverChallenges(loaded);
    m_sessions.EraseIf([&](const UserIdentity& user) {
        const auto before = m_table.users.find(user);
        const auto now = loaded.users.find(user);
        return now == loaded.users.end() || before == m_table.users.end() ||
               now->second.identity != before->second.identity;
    });
    std::swap(m_table, loaded);
    ++m_generation;
    return true;
}

void CHTTPServer::CAuthenticator::CarryOverChallenges(CUserTable& loaded) {
    for (auto& [name, user] : m_table.users) {
        if (user.challengeTime == 0) continue;
        const auto now = loaded.users.find(name);
        if (now != loaded.users.end() && now->second.identity == user.identity) {
            now->second.challengeTime = user.challengeTime;
        } else {
            m_challengeIndex.erase(MakeChallenge(user.identity, user.challengeTime));
        }
    }
}

std::string_view CHTTPServer::CAuthenticator::FindCookie(const web::http::http_request& request) const {
    const auto field = request.headers().find("Cookie");
    return field == request.headers().end() ? std::string_view() : m_cookiePattern.Find(field->second);
}

std::wstring CHTTPServer::CAuthenticator::ReadCookie(const web::http::http_request& request) {
    return FromUtf8(FindCookie(request));
}

CHTTPServer::IAuthenticator::Identity CHTTPServer::CAuthenticator::Identify(
    const web::http::http_request& request) {
    const std::string_view token = FindCookie(request);
    if (token.empty()) return {};
    const std::shared_lock cookies(m_cookieLock);
    if (const auto found = m_table.cookieIndex.find(token); found != m_table.cookieIndex.end()) {
        return {found->second->first, LevelOf(found->second->second.isAdministrator)};
    }
    const std::lock_guard sessions(m_sessionLock);
    const auto* session = m_sessions.Use(token, m_platform.clock.Steady());
    if (!session) return {};
    return {session->user, LevelOf(session->isAdministrator)};
}

std::size_t CHTTPServer::CAuthenticator::SessionCount() const {
    const std::lock_guard sessions(m_sessionLock);
    return m_sessions.Count();
}

CResult<std::string> CHTTPServer::CAuthenticator::NewUniqueToken() const {
    for (;;) {
        auto token = NewToken();
        if (!token.IsOk()) return token;
        const std::lock_guard sessions(m_sessionLock);
        if (!m_table.cookieIndex.contains(token.Value()) && !m_sessions.Has(token.Value())) return token;
    }
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::WithNewSession(const User& user) {
    const std::lock_guard cookies(m_cookieLock);
    auto token = NewUniqueToken();
    if (!token.IsOk()) return {.status = 500, .failure = SystemError(token.Error())};
    const std::lock_guard sessions(m_sessionLock);
    m_sessions.Add(user.first, token.Value(), user.second.isAdministrator, m_platform.clock.Steady());
    return {.token = std::move(token).Value()};
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::WithLongLivedCookie(User& user) {
    {
        const std::lock_guard cookies(m_cookieLock);
        if (!user.second.cookie.empty()) return {.token = user.second.cookie};
        auto token = NewUniqueToken();
        if (!token.IsOk()) return {.status = 500, .failure = SystemError(token.Error())};
        user.second.cookie = std::move(token).Value();
        m_table.cookieIndex[user.second.cookie] = &user;
    }
    ++m_generation;
    // The token counts for as long as the users are not loaded again, kept or not.
    return {.token = user.second.cookie, .failure = PersistCookie(user)};
}

CStatus CHTTPServer::CAuthenticator::PersistCookie(const User& user) const {
    std::wstring sealed;
    RETURN_IF_FAILED(SealToken(m_platform.keys, user.second.cookie, sealed));
    const auto transaction = m_platform.registry.Begin();
    if (!transaction.IsOk()) return SystemError(transaction.Error());
    const auto key = OpenUser(user);
    if (!key.IsOk()) return SystemError(key.Error());
    // A token is not kept for who knows a password that another process has replaced meanwhile.
    CPassword stored;
    Ignore(stored.Read(key.Value().Store()));
    if (stored.Form() == PasswordForm::Hashed && !(stored == user.second.password)) {
        return SystemError(ErrorCode::AccessDenied);
    }
    RETURN_IF_SYSTEM_ERROR(key.Value().Store().Set(kCookieValue, CValue::FromText(sealed)));
    RETURN_IF_SYSTEM_ERROR(transaction.Value()->Commit());
    return {};
}

CResult<CRegistryKey> CHTTPServer::CAuthenticator::OpenUser(const User& user) const {
    auto key = m_usersKey.OpenKey(user.first.Text(), KeyAccess::ReadWrite);
    if (!key.IsOk()) return key;
    const auto identity = key.Value().QueryValue(kIdentityValue);
    if (!identity.IsOk()) return identity.Error();
    if (identity.Value().data != user.second.identity) return ErrorCode::FileNotFound;
    return key;
}

void CHTTPServer::CAuthenticator::SignOut(User& user) {
    const std::lock_guard cookies(m_cookieLock);
    m_table.cookieIndex.erase(user.second.cookie);
    user.second.cookie.clear();
    const std::lock_guard sessions(m_sessionLock);
    m_sessions.EraseOf(user.first);
}

}  // namespace quorbel
