#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// The text of a file without markup as UTF-8, its lines ended by LF, without control characters other than
/// tabs; none when the bytes are no text. May be longer than kLargestText.
std::optional<std::string> ReadPlainText(std::string_view bytes);

/// UTF-8 with its lines ended by LF and without control characters other than tabs.
std::string CleanLines(std::string_view text);

}  // namespace quorbel
