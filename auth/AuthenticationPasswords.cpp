#include <mutex>
#include <shared_mutex>

#include "auth/Authentication.h"
#include "auth/users/UserEntry.h"

namespace quorbel {

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::WithVerified(
    const UserIdentity& user, std::wstring_view password, UsersLock kind,
    const std::function<Outcome(User&)>& then) {
    for (;;) {
        CPassword stored;  // nobody's costs a hash as well
        {
            const std::shared_lock lock(m_usersLock);
            if (const auto found = m_table.users.find(user); found != m_table.users.end()) {
                stored = found->second.password;
            }
        }
        if (stored.Verify(password, m_platform.hasher) != PasswordMatch::Right) return {401};
        std::shared_lock shared(m_usersLock, std::defer_lock);
        std::unique_lock exclusive(m_usersLock, std::defer_lock);
        kind == UsersLock::Shared ? shared.lock() : exclusive.lock();
        const auto found = m_table.users.find(user);
        if (found == m_table.users.end()) return {401};
        // What was verified may have been replaced meanwhile: only what is in force now counts.
        if (found->second.password == stored) return then(*found);
    }
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::SignIn(const UserIdentity& user,
                                                                         std::wstring_view password,
                                                                         Remember remember) {
    if (remember == Remember::No) {
        return WithVerified(user, password, UsersLock::Shared,
                            [this](User& verified) { return WithNewSession(verified); });
    }
    return WithVerified(user, password, UsersLock::Exclusive,
                        [this](User& verified) { return WithLongLivedCookie(verified); });
}

std::uint16_t CHTTPServer::CAuthenticator::CheckChange(const PasswordChange& change, User*& target) {
    const auto caller = m_table.users.find(change.caller);
    if (caller == m_table.users.end()) return 401;
    target = &*caller;
    if (!change.target) return 200;
    if (!caller->second.isAdministrator) return 403;
    const auto named = m_table.users.find(*change.target);
    if (named == m_table.users.end()) return 404;
    target = &*named;
    return 200;
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::ChangePassword(
    const PasswordChange& change) {
    CPassword fresh(change.newPassword.value_or(L""));
    for (;;) {
        CPassword present;
        User* target = nullptr;
        {
            const std::shared_lock lock(m_usersLock);
            if (const std::uint16_t status = CheckChange(change, target); status != 200) return {status};
            present = target->second.password;
        }
        const bool isVerified = !change.target;
        if (isVerified && present.Verify(change.password, m_platform.hasher) != PasswordMatch::Right) {
            return {401};
        }
        if (!change.newPassword) return {400};
        if (fresh.Form() == PasswordForm::Plain) {
            const ErrorCode error = fresh.SetPassword(m_platform.hasher);
            if (error == ErrorCode::OperationAborted) return {500};  // the client has left
            if (error != ErrorCode::Success) return {.status = 500, .failure = SystemError(error)};
        }
        const std::lock_guard lock(m_usersLock);
        if (const std::uint16_t status = CheckChange(change, target); status != 200) return {status};
        // What was verified may have been replaced meanwhile: only what is in force now counts.
        if (isVerified && !(target->second.password == present)) continue;
        return SetNewPassword(*target, std::move(fresh), target->first == change.caller);
    }
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::SetNewPassword(User& target,
                                                                                 CPassword password,
                                                                                 bool isOwn) {
    const auto hadToken = WritePassword(target, password);
    if (!hadToken.IsOk()) return {.status = 500, .failure = SystemError(hadToken.Error())};
    target.second.password = std::move(password);
    ++m_generation;
    SignOut(target);
    {
        // Who began to register a passkey did so with the old password.
        const std::lock_guard challenges(m_challengeLock);
        ClearChallenge(target);
    }
    Outcome outcome;
    if (hadToken.Value()) {
        outcome = WithLongLivedCookie(target);
    } else if (isOwn) {
        outcome = WithNewSession(target);
    }
    if (!isOwn) outcome.token.clear();
    return outcome;
}

CResult<bool> CHTTPServer::CAuthenticator::WritePassword(const User& user, const CPassword& password) const {
    const auto transaction = m_platform.registry.Begin();
    if (!transaction.IsOk()) return transaction.Error();
    const auto key = OpenUser(user);
    if (!key.IsOk()) return key.Error();
    IKey& store = key.Value().Store();
    ErrorCode error = password.Write(store);
    if (error != ErrorCode::Success) return error;
    const auto cookie = store.Query(kCookieValue);
    // Whatever happens from here on, the old token does not come back.
    error = cookie.IsOk() ? store.DeleteValue(kCookieValue) : ErrorCode::Success;
    if (error == ErrorCode::Success) error = transaction.Value()->Commit();
    if (error != ErrorCode::Success) return error;
    return cookie.IsOk() && !cookie.Value().AsText().empty();
}

}  // namespace quorbel
