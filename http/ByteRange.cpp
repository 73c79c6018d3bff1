#include "http/ByteRange.h"

#include <algorithm>

#include "platform/Text.h"

namespace quorbel {

namespace {

bool StartsWithDigit(std::wstring_view text) {
    return !text.empty() && text.front() >= L'0' && text.front() <= L'9';
}

}  // namespace

CByteRange CByteRange::Parse(std::wstring_view value, std::uint64_t size, std::uint64_t cap) {
    constexpr std::wstring_view kUnit = L"bytes=";
    const CByteRange whole{Kind::Whole, 0, size};
    if (!value.starts_with(kUnit)) return whole;
    value.remove_prefix(kUnit.size());
    const auto first = TakeDecimal(value);
    if (!first) return whole;
    const bool hasDash = value.starts_with(L'-');
    if (hasDash) value.remove_prefix(1);
    const bool hasLast = hasDash && StartsWithDigit(value);
    const auto last = hasLast ? TakeDecimal(value) : std::nullopt;
    if (hasLast && (!last || *last < *first)) return whole;
    if (*first >= size) return {Kind::Unsatisfiable, *first, 0};
    const std::uint64_t rest = size - *first;
    if (!hasLast) return {Kind::Part, *first, std::min(rest, cap)};
    return {Kind::Part, *first, *last - *first < rest ? *last - *first + 1 : rest};
}

}  // namespace quorbel
