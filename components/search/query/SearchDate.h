#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// Seconds since 1970 of "2026-11-23", "2026-11-23T11:22", "2026-11-23 11:22:33Z" and the like: years 0001 to
/// 9999, UTC.
std::optional<std::int64_t> ParseInstant(std::wstring_view text) noexcept;

/// A year, month or day as its first day and the first one behind it, each "2026-11-23".
struct CDaySpan {
    std::wstring begin;
    std::wstring end;
};
/// "2026", "2026-11" or "2026-11-23"; years 0001 to 9998.
std::optional<CDaySpan> ParseDaySpan(std::wstring_view text);

}  // namespace quorbel
