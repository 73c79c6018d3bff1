#include "components/search/query/SearchDate.h"

#include <chrono>

namespace quorbel {

namespace {

using namespace std::chrono;

/// Takes exactly so many digits.
std::optional<unsigned> TakeDigits(std::wstring_view& text, std::size_t count) noexcept {
    if (text.size() < count) return std::nullopt;
    unsigned number = 0;
    for (const wchar_t digit : text.substr(0, count)) {
        if (digit < L'0' || digit > L'9') return std::nullopt;
        number = number * 10 + static_cast<unsigned>(digit - L'0');
    }
    text.remove_prefix(count);
    return number;
}

bool Take(std::wstring_view& text, wchar_t character) noexcept {
    if (text.empty() || text.front() != character) return false;
    text.remove_prefix(1);
    return true;
}

/// What `separator` leads in, of two digits and below `bound`.
std::optional<unsigned> TakePart(std::wstring_view& text, wchar_t separator, unsigned bound) noexcept {
    if (!Take(text, separator)) return std::nullopt;
    const auto number = TakeDigits(text, 2);
    return number && *number < bound ? number : std::nullopt;
}

std::optional<year> TakeYear(std::wstring_view& text) noexcept {
    const auto number = TakeDigits(text, 4);
    return number && *number > 0 ? std::optional(year(static_cast<int>(*number))) : std::nullopt;
}

std::wstring DayText(year_month_day date) {
    const auto padded = [](unsigned number, std::size_t width) {
        const std::wstring digits = std::to_wstring(number);
        return std::wstring(width - digits.size(), L'0') + digits;
    };
    return padded(static_cast<unsigned>(static_cast<int>(date.year())), 4) + L"-" +
           padded(static_cast<unsigned>(date.month()), 2) + L"-" +
           padded(static_cast<unsigned>(date.day()), 2);
}

}  // namespace

std::optional<std::int64_t> ParseInstant(std::wstring_view text) noexcept {
    const auto ofYear = TakeYear(text);
    const auto ofMonth = TakePart(text, L'-', 13);
    const auto ofDay = TakePart(text, L'-', 32);
    if (!ofYear || !ofMonth || !ofDay) return std::nullopt;
    const year_month_day date{*ofYear, month(*ofMonth), day(*ofDay)};
    if (!date.ok()) return std::nullopt;
    seconds time = sys_days(date).time_since_epoch();
    if (text.empty()) return time.count();
    if (!Take(text, L'T') && !Take(text, L' ')) return std::nullopt;
    const auto hour = TakeDigits(text, 2);
    const auto minute = TakePart(text, L':', 60);
    if (!hour || *hour > 23 || !minute) return std::nullopt;
    time += hours(*hour) + minutes(*minute);
    if (!text.empty() && text.front() == L':') {
        const auto second = TakePart(text, L':', 60);
        if (!second) return std::nullopt;
        time += seconds(*second);
    }
    Take(text, L'Z');
    return text.empty() ? std::optional<std::int64_t>(time.count()) : std::nullopt;
}

std::optional<CDaySpan> ParseDaySpan(std::wstring_view text) {
    const auto ofYear = TakeYear(text);
    if (!ofYear || *ofYear > year(9998)) return std::nullopt;
    if (text.empty()) {
        return CDaySpan{DayText({*ofYear, January, day(1)}), DayText({*ofYear + years(1), January, day(1)})};
    }
    const auto ofMonth = TakePart(text, L'-', 13);
    if (!ofMonth || *ofMonth == 0) return std::nullopt;
    const year_month whole{*ofYear, month(*ofMonth)};
    if (text.empty()) return CDaySpan{DayText(whole / day(1)), DayText((whole + months(1)) / day(1))};
    const auto ofDay = TakePart(text, L'-', 32);
    if (!ofDay || !text.empty() || !(whole / day(*ofDay)).ok()) return std::nullopt;
    return CDaySpan{DayText(whole / day(*ofDay)),
                    DayText(year_month_day(sys_days(whole / day(*ofDay)) + days(1)))};
}

}  // namespace quorbel
