#pragma once

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "LibService/WorkItems.h"
#include "auth/CookiePattern.h"
#include "auth/Sessions.h"
#include "auth/UserTable.h"
#include "auth/users/PasswordHasher.h"
#include "config/RegistryKey.h"
#include "http/Authenticator.h"
#include "http/EventLimiter.h"
#include "platform/Clock.h"
#include "platform/Waiting.h"
#include "platform/crypto/KeyStorage.h"

namespace quorbel {

struct CVerifiedCredential;

/// The users of a location: who they are, how they sign in and how they stay signed in. Users and their
/// passkeys live in the registry, below the host's "Users" key, and are loaded again when they change there;
/// sessions live in memory. Safe to use from any thread once initialized.
class CHTTPServer::CAuthenticator : public CHTTPServer::IAuthenticator,
                                    public std::enable_shared_from_this<CHTTPServer::CAuthenticator> {
 public:
    class Handler;

    /// What an authenticator stands on; all of it outlives the authenticator.
    struct Platform {
        IRegistry& registry;
        IPasswordHasher& hasher;
        IKeyStorageProvider& keys;
        CWorkItems& work;  ///< runs the watcher
        IClock& clock;
    };

    /// `relyingPartyId` is the host's name; sessions end when unused for `sessionTimeout` seconds.
    CAuthenticator(const Platform& platform, std::wstring relyingPartyId, std::uint32_t sessionTimeout);
    /// Ends the watcher and waits for its end.
    ~CAuthenticator() override;
    CAuthenticator(const CAuthenticator&) = delete;
    CAuthenticator& operator=(const CAuthenticator&) = delete;

    /// Called once, before anything else. Without a "Users" key below the host's there are no users, and
    /// nothing is watched. Errors: those of the key storage provider (HRESULT) and of LoadUsers; message
    /// 0xC000012C for a cookie name that makes no valid pattern.
    CStatus Initialize(CHTTPServer& service, const std::wstring& path, const CRegistryKey& hostKey,
                       const std::wstring& cookieName);
    /// Reads the users again. They take effect all at once; after a failure those before stay in force.
    /// Pending challenges stay with users of the same identity; sessions of others end.
    CStatus LoadUsers();

    Identity Identify(const web::http::http_request& request) override;
    std::wstring ReadCookie(const web::http::http_request& request) override;

    class Response;
    /// Answers a request to the endpoint. `user` is who sends it, empty for nobody; `parameters` are the
    /// listener's named values and the fields of a form. Every outcome is a status.
    std::shared_ptr<CRequestHandler::CResponse> Authenticate(const web::http::http_request& request,
                                                             const UserIdentity& user,
                                                             const TextMap& parameters);

    /// What came of a request to the endpoint.
    struct Outcome {
        std::uint16_t status = 200;
        std::string token = {};     ///< to be sent as the cookie's value; empty for none
        std::string document = {};  ///< to be sent as the body; empty for none
        CStatus failure = {};       ///< for the event log
    };

    enum class Remember { No, Yes };
    /// 200 with a token or 401.
    Outcome SignIn(const UserIdentity& user, std::wstring_view password, Remember remember);

    struct PasswordChange {
        UserIdentity caller;
        std::optional<UserIdentity> target;            ///< whose password an administrator sets
        std::wstring_view password;                    ///< the present one, asked for when there is no target
        std::optional<std::wstring_view> newPassword;  ///< 400 without one, when nothing else is wrong
    };
    /// 200, maybe with a token, 400, 401, 403, 404 or 500.
    Outcome ChangePassword(const PasswordChange& change);

    struct Registration {
        UserIdentity user;
        std::wstring_view password;
        std::optional<std::wstring> displayName;
        std::optional<std::wstring> relyingPartyName;
    };
    /// A document and a pending challenge for making a passkey, or 401.
    Outcome CreationOptions(const Registration& registration);
    /// Checks and keeps a new passkey: 200 or 400.
    Outcome RegisterCredential(const nlohmann::json& body);
    /// A document and a pending challenge for signing in with a passkey, or 401.
    Outcome RequestOptions(const UserIdentity& user);
    /// 200 with a token and a document, 400 or 404.
    Outcome SignInByPasskey(const nlohmann::json& body);

    /// Writes what is wrong with a passkey to the event log, ten times a second at most.
    void ReportPasskeyFailure(const CStatus& failure);

    /// For diagnosis.
    std::size_t SessionCount() const;

 private:
    class CCall;
    using User = CUserTable::Users::value_type;

    CStatus OpenUsers(const CRegistryKey& hostKey);
    ErrorCode ArmWatch();
    CStatus StartWatcher();
    CStatus Watch(CEvent& stop);
    /// False, and nothing has changed, when users were changed in place after `generation`.
    bool Install(CUserTable& loaded, std::uint64_t generation);
    void CarryOverChallenges(CUserTable& loaded);

    std::string_view FindCookie(const web::http::http_request& request) const;
    enum class UsersLock { Shared, Exclusive };
    /// Calls `then` with the user, under m_usersLock, when `password` is the user's; 401 otherwise.
    Outcome WithVerified(const UserIdentity& user, std::wstring_view password, UsersLock kind,
                         const std::function<Outcome(User&)>& then);

    // Under m_usersLock.
    Outcome WithNewSession(const User& user);
    Outcome WithLongLivedCookie(User& user);
    CStatus PersistCookie(const User& user) const;
    /// The user's own key: FileNotFound when another user has the name by now. Within the transaction that
    /// writes to it.
    CResult<CRegistryKey> OpenUser(const User& user) const;
    /// Stores a new password and forgets the stored token; says whether there was one.
    CResult<bool> WritePassword(const User& user, const CPassword& password) const;
    void SignOut(User& user);
    std::uint16_t CheckChange(const PasswordChange& change, User*& target);
    Outcome SetNewPassword(User& target, CPassword password, bool isOwn);
    enum class Ceremony { Registration, SignIn };
    std::string NewChallenge(User& user, Ceremony ceremony);
    /// Under m_challengeLock.
    void ClearChallenge(User& user);
    CStatus KeepCredential(User& user, const CVerifiedCredential& credential,
                           const std::optional<std::wstring>& displayName);
    CStatus WriteCredential(const User& user, const CVerifiedCredential& credential,
                            const std::optional<std::wstring>& displayName);

    /// Under m_cookieLock: a token that is not in use.
    CResult<std::string> NewUniqueToken() const;

    CStatus VerifyRegistration(const nlohmann::json& body);
    /// Under m_challengeLock: whose registration the challenge is for; none when it is not pending.
    std::optional<UserIdentity> RegistrantOf(const std::string& challenge) const;
    /// What an assertion is checked against.
    struct PendingSignIn {
        UserIdentity user;
        std::string credentialId;
        std::string publicKey;
        std::string challenge;
    };
    /// Fills `pending` in for its credential ID, the user as soon as it is known.
    CStatus FindPendingSignIn(PendingSignIn& pending) const;
    /// Under m_usersLock and m_challengeLock: the user has the credential and a challenge that still lives.
    CStatus CheckPending(const User& user, PendingSignIn& pending) const;
    Outcome CompleteSignIn(const PendingSignIn& pending);

    // Constant after construction.
    const Platform m_platform;
    const std::wstring m_relyingPartyId;

    // Constant after Initialize.
    std::string m_relyingPartyHash;
    std::wstring m_cookieName;
    CCookiePattern m_cookiePattern;
    CRegistryKey m_usersKey;  ///< not open when there is none
    std::shared_ptr<CEvent> m_changed;
    std::shared_ptr<CEvent> m_stop;
    std::shared_ptr<CEvent> m_watcherEnded;  ///< null while there is no watcher

    // Safe to use from any thread.
    CAbandonment m_watching;
    CEventLimiter m_passkeyEvents;

    // In the order in which they are taken.
    mutable CReadWriteLock m_usersLock{LockRank::Users};
    mutable CReadWriteLock m_cookieLock{LockRank::Cookies};
    mutable CMutex m_sessionLock{LockRank::Sessions};
    mutable CReadWriteLock m_challengeLock{LockRank::Challenges};

    /// Guarded by m_usersLock, but for long-lived tokens and their index (m_cookieLock) and challenge times
    /// (m_challengeLock). It is replaced under all the locks.
    CUserTable m_table;
    std::uint64_t m_generation = 0;  ///< counts the users' changes; guarded by m_usersLock
    CSessions m_sessions;            ///< guarded by m_sessionLock
    struct PendingChallenge {
        UserIdentity user;
        Ceremony ceremony;
    };
    std::map<std::string, PendingChallenge> m_challengeIndex;  ///< by challenge; guarded by m_challengeLock
};

}  // namespace quorbel
