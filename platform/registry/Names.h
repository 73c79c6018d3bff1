#pragma once

#include <string_view>
#include <vector>

#include "platform/Error.h"

namespace quorbel {

inline constexpr std::size_t kLongestKeyName = 255;
inline constexpr std::size_t kLongestValueName = 16'383;
inline constexpr std::size_t kLargestData = 16 * 1024 * 1024;
inline constexpr std::size_t kDeepestKey = 512;

/// Success, InvalidName (a control character, or none of Unicode's) or FilenameExcedsRange (too long).
ErrorCode CheckValueName(std::wstring_view name) noexcept;

/// The names of a key's path, each checked like a value's name.
CResult<std::vector<std::wstring_view>> SplitKeyPath(std::wstring_view path);

}  // namespace quorbel
