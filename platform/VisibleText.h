#pragma once

#include <string>
#include <string_view>

namespace quorbel {

/// Text for a terminal, on one line: every control character (C0, DEL, C1, the line and paragraph separators
/// and those that turn the direction of writing) is shown as "\xNN" or "\uNNNN", so that text from outside
/// can neither move the cursor nor begin a line. UTF-8; invalid characters become U+FFFD.
std::string ToVisibleUtf8(std::wstring_view text);

}  // namespace quorbel
