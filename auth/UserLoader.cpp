#include "auth/UserLoader.h"

#include <algorithm>
#include <array>

#include "auth/CookieKey.h"
#include "auth/users/UserEntry.h"
#include "platform/crypto/Random.h"

namespace quorbel {

namespace {

constexpr std::size_t kIdentitySize = 16;

using Entries = std::map<std::wstring, CUserEntry>;

CStatus ReadEntries(const CUserSource& source, Entries& entries) {
    // Ends without effect: nothing is written in it.
    const auto moment = source.registry.BeginRead();
    if (!moment.IsOk()) return SystemError(moment.Error());
    return source.users.EnumerateSubkeys([&](const std::wstring& name) -> CStatus {
        const auto key = source.users.OpenKey(name, KeyAccess::ReadWrite);
        if (!key.IsOk()) return SystemError(key.Error());
        std::wstring culprit;
        auto entry = ReadUserEntry(key.Value().Store(), culprit);
        if (!entry.IsOk()) return SystemError(entry.Error());
        entries.emplace(name, std::move(entry).Value());
        return {};
    });
}

/// OperationAborted when it was stopped.
ErrorCode HashPasswords(IPasswordHasher& hasher, const std::function<bool()>& isStopped,
                        HashedPasswords& hashed, Entries& entries) {
    for (auto& [name, entry] : entries) {
        if (isStopped()) return ErrorCode::OperationAborted;
        if (entry.password.Form() != PasswordForm::Plain) continue;
        auto& [plain, known] = hashed[name];
        if (!(plain == entry.password)) {
            CPassword fresh = entry.password;
            const ErrorCode error = fresh.SetPassword(hasher);
            if (error != ErrorCode::Success) return error;
            plain = std::move(entry.password);
            known = std::move(fresh);
        }
        entry.password = known;
    }
    return ErrorCode::Success;
}

/// The identity that the user has by now, a new one if none. FileNotFound when the user is gone.
CResult<std::string> GiveIdentity(const CRegistryKey& users, const std::wstring& name) {
    const auto user = users.OpenKey(name, KeyAccess::ReadWrite);
    if (!user.IsOk()) return user.Error();
    const auto present = user.Value().QueryValue(kIdentityValue);
    if (present.IsOk() && present.Value().type != ValueType::Binary) return ErrorCode::InvalidData;
    if (present.IsOk()) return present.Value().data;
    if (present.Error() != ErrorCode::FileNotFound) return present.Error();
    std::array<unsigned char, kIdentitySize> bytes;
    if (const ErrorCode error = FillRandom(bytes); error != ErrorCode::Success) return error;
    std::string identity(bytes.begin(), bytes.end());
    const ErrorCode error = user.Value().Store().Set(kIdentityValue, {ValueType::Binary, identity});
    if (error != ErrorCode::Success) return error;
    return identity;
}

/// A user who is gone by now is dropped: that change is loaded next.
CStatus GiveIdentities(const CUserSource& source, Entries& entries) {
    const auto lacksIdentity = [](const auto& entry) { return !entry.second.identity; };
    if (std::none_of(entries.begin(), entries.end(), lacksIdentity)) return {};
    const auto transaction = source.registry.Begin();
    if (!transaction.IsOk()) return SystemError(transaction.Error());
    for (auto place = entries.begin(); place != entries.end();) {
        const auto entry = place++;
        if (!lacksIdentity(*entry)) continue;
        auto identity = GiveIdentity(source.users, entry->first);
        if (identity.IsOk()) {
            entry->second.identity = std::move(identity).Value();
        } else if (identity.Error() == ErrorCode::FileNotFound) {
            entries.erase(entry);
        } else {
            return SystemError(identity.Error());
        }
    }
    RETURN_IF_SYSTEM_ERROR(transaction.Value()->Commit());
    return {};
}

CStatus AddUser(IKeyStorageProvider& keys, const std::wstring& name, CUserEntry entry, CUserTable& table) {
    std::string cookie;
    RETURN_IF_FAILED(UnsealToken(keys, entry.cookieText, cookie));
    const auto added = table.users.emplace(
        UserIdentity(name),
        CUser{std::move(entry.password), *std::move(entry.identity), std::move(entry.displayName),
              std::move(entry.credentials), 0, std::move(cookie), entry.isAdministrator});
    const CUserTable::Users::value_type& user = *added.first;
    for (const auto& [id, publicKey] : user.second.credentials) table.credentialIndex[id] = user.first;
    if (!user.second.cookie.empty()) table.cookieIndex[user.second.cookie] = &user;
    return {};
}

}  // namespace

CStatus LoadUserTable(const CUserSource& source, const std::function<bool()>& isStopped,
                      HashedPasswords& hashed, std::optional<CUserTable>& table) {
    Entries entries;
    RETURN_IF_FAILED(ReadEntries(source, entries));
    const ErrorCode error = HashPasswords(source.hasher, isStopped, hashed, entries);
    if (error == ErrorCode::OperationAborted) return {};
    RETURN_IF_SYSTEM_ERROR(error);
    RETURN_IF_FAILED(GiveIdentities(source, entries));
    CUserTable loaded;
    for (auto& [name, entry] : entries) {
        RETURN_IF_FAILED(AddUser(source.keys, name, std::move(entry), loaded));
    }
    table = std::move(loaded);
    return {};
}

}  // namespace quorbel
