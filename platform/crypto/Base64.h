#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// RFC 4648. Reading is strict: a character outside the alphabet (line breaks and blanks are such), wrong
/// padding or trailing bits that are not zero give nothing.
/// @{
/// Section 4: "+" and "/", padded with "=".
std::string ToBase64(std::string_view bytes);
std::optional<std::string> FromBase64(std::string_view text);
/// Section 5: "-" and "_", never padded.
std::string ToBase64Url(std::string_view bytes);
std::optional<std::string> FromBase64Url(std::string_view text);
/// @}

}  // namespace quorbel
