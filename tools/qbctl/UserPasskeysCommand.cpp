#include <nlohmann/json.hpp>

#include "auth/users/UserEntry.h"
#include "platform/Text.h"
#include "platform/crypto/Base64.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/UserKey.h"

namespace quorbel {

namespace {

std::optional<std::string> ReadBytes(const IKey& key, std::wstring_view name) {
    auto value = key.Query(name);
    if (!value.IsOk() || value.Value().type != ValueType::Binary) return std::nullopt;
    return std::move(value.Value().data);
}

/// As authenticators' makers publish it: 8-4-4-4-12 hexadecimal digits.
std::optional<std::string> FormatAaguid(const std::optional<std::string>& bytes) {
    if (!bytes || bytes->size() != 16) return std::nullopt;
    std::string text;
    for (std::size_t i = 0; i < bytes->size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += ToUtf8(FoldCase(ToHex(static_cast<unsigned char>((*bytes)[i]), 2)));
    }
    return text;
}

/// What is shown of a passkey; an ID in Base64url, none when it is missing or of the wrong type.
struct CShownPasskey {
    std::wstring key;
    std::optional<std::string> id;
    std::optional<std::string> aaguid;
};

/// Calls `use` for each passkey of the user.
ExitCode ForEachPasskey(const IKey& user, const std::function<void(const CShownPasskey&)>& use) {
    const auto passkeys = user.Open(kCredentialsKey, KeyAccess::Read);
    if (passkeys.Error() == ErrorCode::FileNotFound) return ExitCode::Success;
    if (!passkeys.IsOk()) return Fail(kCredentialsKey, passkeys.Error());
    const auto names = passkeys.Value()->Subkeys();
    if (!names.IsOk()) return Fail(kCredentialsKey, names.Error());
    for (const std::wstring& name : names.Value()) {
        const auto passkey = passkeys.Value()->Open(name, KeyAccess::Read);
        if (!passkey.IsOk()) return Fail(name, passkey.Error());
        const auto id = ReadBytes(*passkey.Value(), kCredentialIdValue);
        use({name, id ? std::optional(ToBase64Url(*id)) : std::nullopt,
             FormatAaguid(ReadBytes(*passkey.Value(), kAaguidValue))});
    }
    return ExitCode::Success;
}

void ShowPasskeyAsJson(const CShownPasskey& passkey) {
    const auto toJson = [](const std::optional<std::string>& text) {
        return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json();
    };
    const nlohmann::ordered_json object{
        {"id", toJson(passkey.id)}, {"aaguid", toJson(passkey.aaguid)}, {"key", ToUtf8(passkey.key)}};
    PrintData(object.dump());
}

void ShowPasskeyAsText(const CShownPasskey& passkey) {
    PrintLine(FromUtf8(passkey.id.value_or("-")) + L"  aaguid=" + FromUtf8(passkey.aaguid.value_or("-")) +
              L"  key=" + passkey.key);
}

ExitCode RemovePasskey(IKey& user, const std::wstring& id) {
    std::vector<std::wstring> found;
    const ExitCode code = ForEachPasskey(user, [&](const CShownPasskey& passkey) {
        if (passkey.id == ToUtf8(id)) found.push_back(passkey.key);
    });
    if (code != ExitCode::Success) return code;
    if (found.empty()) return Fail(L"The user has no such passkey: " + id);
    for (const std::wstring& key : found) {
        const ErrorCode error = user.DeleteTree(std::wstring(kCredentialsKey) + L'\\' + key);
        if (error != ErrorCode::Success) return Fail(key, error);
    }
    return ExitCode::Success;
}

}  // namespace

ExitCode UserPasskeys(const CArguments& arguments) {
    const ExitCode code = CheckUserName(arguments.Operands()[0], L"qbctl user passkeys");
    if (code != ExitCode::Success) return code;
    if (const std::wstring* id = arguments.Value(L"--remove"))
        return ChangeUser(arguments, [&](IKey& user) { return RemovePasskey(user, *id); });
    return ReadUser(arguments, [&](const IKey& user) {
        return ForEachPasskey(user, arguments.Has(L"--json") ? ShowPasskeyAsJson : ShowPasskeyAsText);
    });
}

}  // namespace quorbel
