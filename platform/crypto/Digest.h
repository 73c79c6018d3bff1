#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace quorbel {

/// Digests of byte strings, given in pieces: 32 bytes (SHA-256) and 20 bytes (SHA-1, FIPS 180-4). Empty when
/// the cryptographic library fails.
/// @{
std::string Sha256(std::initializer_list<std::string_view> pieces);
std::string Sha1(std::initializer_list<std::string_view> pieces);
/// @}

}  // namespace quorbel
