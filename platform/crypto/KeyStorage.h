#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace quorbel {

/// What a key storage provider answers: an HRESULT. Failures of the operating system are the HRESULT of their
/// Win32 error number.
using SECURITY_STATUS = std::int32_t;
inline constexpr SECURITY_STATUS kKeyStorageSuccess = 0;
inline constexpr auto NTE_BAD_DATA = static_cast<SECURITY_STATUS>(0x80090005);
inline constexpr auto NTE_NOT_FOUND = static_cast<SECURITY_STATUS>(0x80090011);
inline constexpr auto NTE_BAD_KEYSET = static_cast<SECURITY_STATUS>(0x80090016);
inline constexpr auto NTE_FAIL = static_cast<SECURITY_STATUS>(0x80090020);
inline constexpr auto NTE_INVALID_PARAMETER = static_cast<SECURITY_STATUS>(0x80090027);

/// An open key (AES-256-GCM). Safe to use from any thread; wiped from memory at its end.
class IStoredKey {
 public:
    virtual ~IStoredKey() = default;
    /// Seals the bytes with a fresh random nonce: the same bytes twice give different results.
    virtual SECURITY_STATUS Encrypt(std::string_view plain, std::string& sealed) const = 0;
    /// NTE_BAD_DATA, and `plain` is empty, for what this key has not sealed.
    virtual SECURITY_STATUS Decrypt(std::string_view sealed, std::string& plain) const = 0;
};

/// Keeps named keys. Names are host names in form: 1 to 200 lower-case letters, digits, hyphens and dots, no
/// dot first; any other is NTE_INVALID_PARAMETER. Safe to use from any thread and by several processes at
/// once. Every output is set on success only.
class IKeyStorageProvider {
 public:
    virtual ~IKeyStorageProvider() = default;
    /// NTE_BAD_KEYSET when there is no such key, NTE_BAD_DATA when it is damaged.
    virtual SECURITY_STATUS OpenKey(std::string_view name, std::unique_ptr<IStoredKey>& key) = 0;
    /// Makes a new random key, on disk when this returns, and opens it. When there is one of that name by
    /// now, that one stays as it is and is opened: callers at the same time all end with one key.
    virtual SECURITY_STATUS CreatePersistedKey(std::string_view name, std::unique_ptr<IStoredKey>& key) = 0;
};

/// Keys in files (mode 0600) of that folder, which must exist; docs/operating.md describes the files.
std::unique_ptr<IKeyStorageProvider> OpenKeyStorageProvider(std::filesystem::path folder);

}  // namespace quorbel
