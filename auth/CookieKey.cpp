#include "auth/CookieKey.h"

#include "platform/Text.h"
#include "platform/crypto/Base64.h"

namespace quorbel {

namespace {

constexpr std::string_view kKeyName = "cookies.authentication.quorbel";

CStatus OpenCookieKey(IKeyStorageProvider& provider, std::unique_ptr<IStoredKey>& key) {
    const SECURITY_STATUS result = provider.OpenKey(kKeyName, key);
    return result == kKeyStorageSuccess ? CStatus() : HResultError(result);
}

}  // namespace

CStatus EnsureCookieKey(IKeyStorageProvider& provider) {
    std::unique_ptr<IStoredKey> key;
    SECURITY_STATUS result = provider.OpenKey(kKeyName, key);
    if (result == NTE_BAD_KEYSET || result == NTE_NOT_FOUND) {
        result = provider.CreatePersistedKey(kKeyName, key);
    }
    return result == kKeyStorageSuccess ? CStatus() : HResultError(result);
}

CStatus SealToken(IKeyStorageProvider& provider, std::string_view token, std::wstring& sealed) {
    std::unique_ptr<IStoredKey> key;
    RETURN_IF_FAILED(OpenCookieKey(provider, key));
    std::string bytes;
    const SECURITY_STATUS result = key->Encrypt(token, bytes);
    if (result != kKeyStorageSuccess) return HResultError(result);
    sealed = FromUtf8(ToBase64(bytes));
    return {};
}

CStatus UnsealToken(IKeyStorageProvider& provider, std::wstring_view sealed, std::string& token) {
    token.clear();
    const auto bytes = FromBase64(ToUtf8(sealed));
    if (!bytes || bytes->empty()) return {};
    std::unique_ptr<IStoredKey> key;
    RETURN_IF_FAILED(OpenCookieKey(provider, key));
    const SECURITY_STATUS result = key->Decrypt(*bytes, token);
    return result == kKeyStorageSuccess ? CStatus() : HResultError(result);
}

}  // namespace quorbel
