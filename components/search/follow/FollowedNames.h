#pragma once

#include <string_view>

namespace quorbel {

/// Names that begin with "." are hidden: they are not followed.
inline bool IsFollowedName(std::string_view name) noexcept {
    return !name.starts_with('.');
}

/// Files that the service runs instead of serving them: NAME.METHOD.sql and NAME.METHOD.search, and what
/// editors leave of them. What they say is nobody's business.
bool IsQueryFile(std::string_view name) noexcept;

/// Why a file or folder of this name cannot be found: its URL could not be written. Null when it can.
const char* ProblemOfName(std::string_view name) noexcept;

}  // namespace quorbel
