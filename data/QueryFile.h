#pragma once

#include <string>

#include "platform/FileCache.h"

namespace quorbel {

/// The whole text of a query file, opened through `files` and read as UTF-8. SharingViolation when it is
/// being written all the while, FileTooLarge beyond kLargestQueryFile, and what opening and reading it meets.
CResult<std::wstring> ReadQueryFile(CFileCache& files, const std::wstring& path);
inline constexpr std::size_t kLargestQueryFile = 16 << 20;  ///< bytes

}  // namespace quorbel
