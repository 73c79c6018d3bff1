#pragma once

#include <map>
#include <optional>
#include <string>

#include "auth/users/Password.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// The users are subkeys, named as the users are, of this key of their host's.
inline constexpr std::wstring_view kUsersKey = L"Users";
/// Values and subkeys of a user's key.
/// @{
inline constexpr std::wstring_view kIdentityValue = L"Identity";            ///< REG_BINARY
inline constexpr std::wstring_view kDisplayNameValue = L"DisplayName";      ///< REG_SZ
inline constexpr std::wstring_view kPasswordValue = L"Password";            ///< REG_SZ or REG_BINARY
inline constexpr std::wstring_view kCookieValue = L"Cookie";                ///< REG_SZ
inline constexpr std::wstring_view kAdministratorValue = L"Administrator";  ///< REG_DWORD
inline constexpr std::wstring_view kCredentialsKey = L"WebAuthn";
/// @}
/// Values of each key below kCredentialsKey, all of them REG_BINARY.
/// @{
inline constexpr std::wstring_view kCredentialIdValue = L"Id";
inline constexpr std::wstring_view kPublicKeyValue = L"PublicKey";
inline constexpr std::wstring_view kAaguidValue = L"AAGUID";
/// @}

/// A user as the registry has it.
struct CUserEntry {
    std::optional<std::string> identity;  ///< none when it has not been given one yet
    std::wstring displayName;             ///< may be empty
    CPassword password;                   ///< a plain one is not hashed yet
    std::wstring cookieText;              ///< the long-lived token, sealed and in Base64; empty for none
    bool isAdministrator = false;
    std::map<std::string, std::string>
        credentials;  ///< credential ID to public key, ordered as unsigned bytes
};

/// Reads a user's key. InvalidData for a value of the wrong type or malformed, FileNotFound for a passkey
/// without its ID or key. `culprit` then names the value, "WebAuthn\1\Id" for one further down; it is for
/// people and never holds a value's content.
CResult<CUserEntry> ReadUserEntry(const IKey& user, std::wstring& culprit);

}  // namespace quorbel
