#include "auth/users/UserEntry.h"

namespace quorbel {

namespace {

bool IsText(const CValue& value) {
    return value.type == ValueType::Text || value.type == ValueType::ExpandableText;
}

/// Null when there is no such value.
CResult<std::optional<CValue>> QueryOptional(const IKey& key, std::wstring_view name) {
    auto value = key.Query(name);
    if (value.Error() == ErrorCode::FileNotFound) return std::optional<CValue>();
    if (!value.IsOk()) return value.Error();
    return std::optional(std::move(value).Value());
}

ErrorCode ReadIdentity(const IKey& user, CUserEntry& entry) {
    auto value = QueryOptional(user, kIdentityValue);
    if (!value.IsOk() || !value.Value()) return value.Error();
    if (value.Value()->type != ValueType::Binary) return ErrorCode::InvalidData;
    entry.identity = std::move(value.Value()->data);
    return ErrorCode::Success;
}

ErrorCode ReadDisplayName(const IKey& user, CUserEntry& entry) {
    using namespace std::string_view_literals;
    const auto value = QueryOptional(user, kDisplayNameValue);
    if (!value.IsOk() || !value.Value() || !IsText(*value.Value())) return value.Error();
    const std::string& data = value.Value()->data;
    if (data.size() % 2 != 0 || !data.ends_with("\0\0"sv)) return ErrorCode::InvalidData;
    entry.displayName = value.Value()->AsText();
    return ErrorCode::Success;
}

ErrorCode ReadPassword(const IKey& user, CUserEntry& entry) {
    const ErrorCode error = entry.password.Read(user);
    return error == ErrorCode::FileNotFound ? ErrorCode::Success : error;
}

/// A malformed text is no token, and no failure either.
ErrorCode ReadCookie(const IKey& user, CUserEntry& entry) {
    const auto value = QueryOptional(user, kCookieValue);
    if (value.IsOk() && value.Value() && IsText(*value.Value())) entry.cookieText = value.Value()->AsText();
    return value.Error();
}

ErrorCode ReadAdministrator(const IKey& user, CUserEntry& entry) {
    const auto value = QueryOptional(user, kAdministratorValue);
    if (!value.IsOk() || !value.Value()) return value.Error();
    const auto number = value.Value()->AsNumber32();
    if (value.Value()->type != ValueType::Number32 || !number) return ErrorCode::InvalidData;
    entry.isAdministrator = *number != 0;
    return ErrorCode::Success;
}

CResult<std::string> ReadBytes(const IKey& key, std::wstring_view name) {
    auto value = key.Query(name);
    if (!value.IsOk()) return value.Error();
    if (value.Value().type != ValueType::Binary) return ErrorCode::InvalidData;
    return std::move(value.Value().data);
}

ErrorCode ReadCredential(const IKey& credential, CUserEntry& entry, std::wstring& culprit) {
    culprit = kCredentialIdValue;
    const auto id = ReadBytes(credential, kCredentialIdValue);
    if (!id.IsOk()) return id.Error();
    culprit = kPublicKeyValue;
    const auto publicKey = ReadBytes(credential, kPublicKeyValue);
    if (!publicKey.IsOk()) return publicKey.Error();
    entry.credentials.insert_or_assign(id.Value(), publicKey.Value());
    return ErrorCode::Success;
}

ErrorCode ReadCredentials(const IKey& user, CUserEntry& entry, std::wstring& culprit) {
    const auto credentials = user.Open(kCredentialsKey, KeyAccess::Read);
    if (credentials.Error() == ErrorCode::FileNotFound) return ErrorCode::Success;
    if (!credentials.IsOk()) return credentials.Error();
    const auto names = credentials.Value()->Subkeys();
    if (!names.IsOk()) return names.Error();
    for (const std::wstring& name : names.Value()) {
        culprit = std::wstring(kCredentialsKey) + L'\\' + name;
        const auto credential = credentials.Value()->Open(name, KeyAccess::Read);
        if (!credential.IsOk()) return credential.Error();
        std::wstring value;
        const ErrorCode error = ReadCredential(*credential.Value(), entry, value);
        if (error == ErrorCode::Success) continue;
        culprit += L'\\' + value;
        return error;
    }
    return ErrorCode::Success;
}

}  // namespace

CResult<CUserEntry> ReadUserEntry(const IKey& user, std::wstring& culprit) {
    constexpr std::pair<std::wstring_view, ErrorCode (*)(const IKey&, CUserEntry&)> kValues[] = {
        {kIdentityValue, ReadIdentity},           {kDisplayNameValue, ReadDisplayName},
        {kPasswordValue, ReadPassword},           {kCookieValue, ReadCookie},
        {kAdministratorValue, ReadAdministrator},
    };
    CUserEntry entry;
    for (const auto& [name, read] : kValues) {
        culprit = name;
        if (const ErrorCode error = read(user, entry); error != ErrorCode::Success) return error;
    }
    culprit = kCredentialsKey;
    if (const ErrorCode error = ReadCredentials(user, entry, culprit); error != ErrorCode::Success)
        return error;
    culprit.clear();
    return entry;
}

}  // namespace quorbel
