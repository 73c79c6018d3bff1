#pragma once

#include <cstdint>

namespace quorbel {

/// What a caller may reach: the roots and web applications of the own level and of those below it.
enum class AccessLevel : std::int32_t { Anon = 1, User = 2, Admin = 3 };

inline constexpr AccessLevel kAccessLevels[] = {AccessLevel::Admin, AccessLevel::User, AccessLevel::Anon};

}  // namespace quorbel
