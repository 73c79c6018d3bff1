#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// An HTML or XHTML document as UTF-8: the encoding is that of the byte-order mark, else the one that the
/// document declares near its beginning, else UTF-8 when the bytes are valid, else Windows-1252. None when
/// the bytes are no text.
std::optional<std::string> DecodeHtml(std::string_view bytes);

/// The text with character references ("&amp;", "&#233;") replaced by what they stand for.
std::string WithoutReferences(std::string_view text);

}  // namespace quorbel
