#pragma once

#include <string>
#include <string_view>

#include "platform/Error.h"

namespace quorbel {

inline bool IsSeparator(wchar_t character) noexcept {
    return character == L'/' || character == L'\\';
}

/// Turns a path as the service writes it into one of the local file system, in UTF-8: "\" counts as "/"; the
/// prefix "\\?\" is dropped; "0:/" at the start stands for the local root; a revision (see kRevisionMark) is
/// dropped. A NUL or a character that UTF-8 cannot hold is InvalidName, an empty path PathNotFound.
CResult<std::string> ToLocalPath(std::wstring_view path);

/// What follows this character at the end of a "0:/" path tells versions of one file apart and takes no part
/// in finding it.
inline constexpr wchar_t kRevisionMark = L'\x1F';

}  // namespace quorbel
