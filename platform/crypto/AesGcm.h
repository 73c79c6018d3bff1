#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

using AesKey = std::array<unsigned char, 32>;
using AesNonce = std::array<unsigned char, 12>;
inline constexpr std::size_t kAesTagSize = 16;

/// AES-256-GCM (NIST SP 800-38D). A key must never see the same nonce twice.
/// @{
/// The sealed bytes followed by the tag; none when the cryptographic library fails.
std::optional<std::string> SealAesGcm(const AesKey& key, const AesNonce& nonce, std::string_view additional,
                                      std::string_view plain);
/// The plain bytes; none when key, nonce, additional data and sealed bytes do not belong together.
std::optional<std::string> OpenAesGcm(const AesKey& key, const AesNonce& nonce, std::string_view additional,
                                      std::string_view sealedAndTag);
/// @}

}  // namespace quorbel
