#pragma once

#include <string>
#include <string_view>

#include "LibService/Status.h"
#include "platform/crypto/KeyStorage.h"

namespace quorbel {

/// The persisted key under which long-lived tokens are stored. Errors are the HRESULT of the key storage
/// provider.
/// @{

/// Creates the key when there is none.
CStatus EnsureCookieKey(IKeyStorageProvider& provider);
/// The token encrypted, in Base64 (RFC 4648, section 4).
CStatus SealToken(IKeyStorageProvider& provider, std::string_view token, std::wstring& sealed);
/// Back again; a text that is empty or no Base64 gives an empty token.
CStatus UnsealToken(IKeyStorageProvider& provider, std::wstring_view sealed, std::string& token);
/// @}

}  // namespace quorbel
