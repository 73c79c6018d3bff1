#include <algorithm>
#include <mutex>
#include <nlohmann/json.hpp>
#include <shared_mutex>

#include "LibService/MessageIds.h"
#include "auth/Authentication.h"
#include "auth/passkeys/Challenge.h"
#include "auth/passkeys/ClientData.h"
#include "auth/passkeys/PasskeyJson.h"
#include "auth/users/UserEntry.h"
#include "platform/crypto/Base64.h"

namespace quorbel {

namespace {

/// A challenge is answered within this time.
constexpr std::chrono::seconds kChallengeLife{600};

std::vector<std::string> CredentialIds(const CUser& user) {
    std::vector<std::string> ids;
    for (const auto& [id, publicKey] : user.credentials) ids.push_back(id);
    return ids;
}

/// "1f 0 a3": the bytes in hexadecimal.
std::wstring SpacedHex(std::string_view bytes) {
    constexpr std::wstring_view kDigits = L"0123456789abcdef";
    std::wstring text;
    for (char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (!text.empty()) text.push_back(L' ');
        if (value >> 4 != 0) text.push_back(kDigits[value >> 4]);
        text.push_back(kDigits[value & 15]);
    }
    return text;
}

/// The name of a credential's key: the time in standard Base64.
std::wstring CredentialKeyName(std::int64_t time) {
    std::string bytes;
    for (int shift = 0; shift < 64; shift += 8) {
        bytes.push_back(static_cast<char>(static_cast<std::uint64_t>(time) >> shift & 0xFF));
    }
    return FromUtf8(ToBase64(bytes));
}

CResult<CRegistryKey> CreateCredentialKey(CRegistryKey& credentials, std::int64_t time) {
    // Names are compared without regard to case, which Base64 tells apart: a key that is there is left alone.
    for (;; ++time) {
        const auto present = credentials.OpenKey(CredentialKeyName(time), KeyAccess::Read);
        if (present.IsOk()) continue;
        if (present.Error() != ErrorCode::FileNotFound) return present.Error();
        return credentials.CreateKey(CredentialKeyName(time));
    }
}

}  // namespace

std::string CHTTPServer::CAuthenticator::NewChallenge(User& user, Ceremony ceremony) {
    const std::lock_guard challenges(m_challengeLock);
    ClearChallenge(user);
    user.second.challengeTime = m_platform.clock.Steady().count();
    std::string challenge = MakeChallenge(user.second.identity, user.second.challengeTime);
    m_challengeIndex.insert_or_assign(challenge, PendingChallenge{user.first, ceremony});
    return challenge;
}

void CHTTPServer::CAuthenticator::ClearChallenge(User& user) {
    if (user.second.challengeTime == 0) return;
    m_challengeIndex.erase(MakeChallenge(user.second.identity, user.second.challengeTime));
    user.second.challengeTime = 0;
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::CreationOptions(
    const Registration& registration) {
    const auto options = [&](User& user) {
        return Outcome{.document = CreationOptionsDocument(
                           {NewChallenge(user, Ceremony::Registration), CredentialIds(user.second),
                            m_relyingPartyId, registration.relyingPartyName, user.second.identity,
                            user.first.Text(), registration.displayName})};
    };
    return WithVerified(registration.user, registration.password, UsersLock::Shared, options);
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::RequestOptions(const UserIdentity& name) {
    const std::shared_lock lock(m_usersLock);
    const auto user = m_table.users.find(name);
    if (user == m_table.users.end()) return {401};
    return {.document = RequestOptionsDocument(
                {NewChallenge(*user, Ceremony::SignIn), CredentialIds(user->second), m_relyingPartyId})};
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::RegisterCredential(
    const nlohmann::json& body) {
    CStatus status = VerifyRegistration(body);
    if (status.IsOk()) return {};
    return {.status = 400, .failure = std::move(status)};
}

std::optional<UserIdentity> CHTTPServer::CAuthenticator::RegistrantOf(const std::string& challenge) const {
    const auto pending = m_challengeIndex.find(challenge);
    // Anybody is given a challenge for signing in, only who knows the password one for registering.
    if (pending == m_challengeIndex.end() || pending->second.ceremony != Ceremony::Registration) {
        return std::nullopt;
    }
    return pending->second.user;
}

CStatus CHTTPServer::CAuthenticator::VerifyRegistration(const nlohmann::json& body) {
    CRegistrationResponse response;
    RETURN_IF_FAILED(ReadRegistrationResponse(body, response));
    CClientData clientData;
    RETURN_IF_FAILED(ParseClientData(response.clientDataJson, clientData));
    std::optional<UserIdentity> registrant;
    {
        const std::shared_lock challenges(m_challengeLock);
        registrant = RegistrantOf(clientData.challenge);
    }
    if (!registrant) return MessageError(message::kChallengeUnknown);
    const UserIdentity& name = *registrant;
    std::optional<std::wstring> displayName;
    RETURN_IF_FAILED(ReadDisplayName(body, displayName));
    CVerifiedCredential credential;
    RETURN_IF_FAILED(VerifyAttestation(response, m_relyingPartyHash, name.Text(), credential));

    const std::lock_guard lock(m_usersLock);
    const auto user = m_table.users.find(name);
    if (user == m_table.users.end()) return MessageError(message::kPasskeyUserGone, {name.Text()});
    {
        // It may have been answered, or replaced, while the attestation was checked.
        const std::shared_lock challenges(m_challengeLock);
        if (!RegistrantOf(clientData.challenge)) return MessageError(message::kChallengeUnknown);
    }
    return KeepCredential(*user, credential, displayName);
}

CStatus CHTTPServer::CAuthenticator::KeepCredential(User& user, const CVerifiedCredential& credential,
                                                    const std::optional<std::wstring>& displayName) {
    // The index does not know of those that were registered since the last load.
    const auto has = [&](const User& other) {
        return other.second.credentials.contains(credential.credentialId);
    };
    if (std::any_of(m_table.users.begin(), m_table.users.end(), has)) {
        return SystemError(ErrorCode::AlreadyExists);
    }
    RETURN_IF_FAILED(WriteCredential(user, credential, displayName));
    if (displayName && !displayName->empty()) user.second.displayName = *displayName;
    user.second.credentials.emplace(credential.credentialId, credential.publicKey);
    ++m_generation;
    const std::lock_guard challenges(m_challengeLock);
    ClearChallenge(user);
    return {};
}

CStatus CHTTPServer::CAuthenticator::WriteCredential(const User& user, const CVerifiedCredential& credential,
                                                     const std::optional<std::wstring>& displayName) {
    const auto transaction = m_platform.registry.Begin();
    if (!transaction.IsOk()) return SystemError(transaction.Error());
    auto key = OpenUser(user);
    if (!key.IsOk()) return SystemError(key.Error());
    auto credentials = key.Value().CreateKey(kCredentialsKey);
    if (!credentials.IsOk()) return SystemError(credentials.Error());
    const auto created = CreateCredentialKey(credentials.Value(), m_platform.clock.Steady().count());
    if (!created.IsOk()) return SystemError(created.Error());
    IKey& store = created.Value().Store();
    RETURN_IF_SYSTEM_ERROR(store.Set(kAaguidValue, {ValueType::Binary, credential.aaguid}));
    RETURN_IF_SYSTEM_ERROR(store.Set(kCredentialIdValue, {ValueType::Binary, credential.credentialId}));
    RETURN_IF_SYSTEM_ERROR(store.Set(kPublicKeyValue, {ValueType::Binary, credential.publicKey}));
    if (displayName && !displayName->empty()) {
        RETURN_IF_SYSTEM_ERROR(key.Value().Store().Set(kDisplayNameValue, CValue::FromText(*displayName)));
    }
    RETURN_IF_SYSTEM_ERROR(transaction.Value()->Commit());
    return {};
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::SignInByPasskey(
    const nlohmann::json& body) {
    const auto refused = [](CStatus failure, std::uint16_t status = 400) {
        return Outcome{.status = status, .failure = std::move(failure)};
    };
    PendingSignIn pending;
    if (CStatus status = ReadCredentialId(body, pending.credentialId); !status.IsOk()) return refused(status);
    if (CStatus status = FindPendingSignIn(pending); !status.IsOk()) {
        return refused(status, pending.user.empty() ? 404 : 400);
    }
    CAssertionResponse response;
    if (CStatus status = ReadAssertionResponse(body, response); !status.IsOk()) return refused(status);
    CStatus status = VerifyAssertion(response, pending.user.Text(), pending.publicKey, pending.challenge,
                                     m_relyingPartyHash);
    return status.IsOk() ? CompleteSignIn(pending) : refused(status);
}

CStatus CHTTPServer::CAuthenticator::FindPendingSignIn(PendingSignIn& pending) const {
    const std::shared_lock lock(m_usersLock);
    const auto name = m_table.credentialIndex.find(pending.credentialId);
    if (name == m_table.credentialIndex.end()) {
        return MessageError(message::kCredentialUnknown, {SpacedHex(pending.credentialId)});
    }
    pending.user = name->second;
    const auto user = m_table.users.find(name->second);
    if (user == m_table.users.end()) return MessageError(message::kPasskeyUserGone, {name->second.Text()});
    const std::shared_lock challenges(m_challengeLock);
    return CheckPending(*user, pending);
}

CStatus CHTTPServer::CAuthenticator::CheckPending(const User& user, PendingSignIn& pending) const {
    const std::wstring& name = user.first.Text();
    const auto credential = user.second.credentials.find(pending.credentialId);
    if (credential == user.second.credentials.end()) {
        return MessageError(message::kCredentialNotOfUser, {name});
    }
    pending.publicKey = credential->second;
    const std::chrono::nanoseconds issued(user.second.challengeTime);
    if (issued.count() == 0) return MessageError(message::kChallengeMissing, {name});
    if (m_platform.clock.Steady() - issued > kChallengeLife) {
        return MessageError(message::kChallengeExpired, {name});
    }
    pending.challenge = MakeChallenge(user.second.identity, issued.count());
    return {};
}

CHTTPServer::CAuthenticator::Outcome CHTTPServer::CAuthenticator::CompleteSignIn(
    const PendingSignIn& pending) {
    const auto refused = [](CStatus failure) {
        return Outcome{.status = 400, .failure = std::move(failure)};
    };
    const std::shared_lock lock(m_usersLock);
    const auto found = m_table.users.find(pending.user);
    if (found == m_table.users.end()) {
        return refused(MessageError(message::kPasskeyUserGone, {pending.user.Text()}));
    }
    User& user = *found;
    {
        // Of two answers to one challenge the first counts, and what was loaded meanwhile counts, too.
        const std::lock_guard taking(m_challengeLock);
        PendingSignIn now{user.first, pending.credentialId, {}, {}};
        if (CStatus status = CheckPending(user, now); !status.IsOk()) return refused(status);
        if (now.challenge != pending.challenge || now.publicKey != pending.publicKey) {
            return refused(MessageError(message::kChallengeMismatch, {user.first.Text()}));
        }
        ClearChallenge(user);
    }
    Outcome outcome = WithNewSession(user);
    if (outcome.status != 200) return outcome;
    outcome.document = SignInDocument(
        {CredentialIds(user.second), user.second.displayName, user.first.Text(), user.second.identity});
    return outcome;
}

}  // namespace quorbel
