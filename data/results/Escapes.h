#pragma once

#include <array>
#include <string>
#include <string_view>

namespace quorbel {

/// What stands for the ASCII characters of a text in a format; null for those that stand for themselves, as
/// all others do.
using Escapes = std::array<const wchar_t*, 128>;

inline void AppendEscaped(std::wstring& text, std::wstring_view value, const Escapes& escapes) {
    std::size_t start = 0;
    for (std::size_t place = 0; place != value.size(); ++place) {
        const auto character = static_cast<std::size_t>(value[place]);
        if (character >= escapes.size() || !escapes[character]) continue;
        text.append(value.substr(start, place - start)).append(escapes[character]);
        start = place + 1;
    }
    text.append(value.substr(start));
}

}  // namespace quorbel
