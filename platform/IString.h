#pragma once

#include <compare>
#include <string>
#include <string_view>

#include "platform/Text.h"

namespace quorbel {

/// A wide string whose comparisons ignore case (character by character, see FoldCase).
template <class Character>
class basic_istring;

template <>
class basic_istring<wchar_t> {
 public:
    basic_istring() = default;
    explicit basic_istring(std::wstring text) : m_text(std::move(text)) {}
    explicit basic_istring(std::wstring_view text) : m_text(text) {}
    explicit basic_istring(const wchar_t* text) : m_text(text) {}

    const std::wstring& Text() const noexcept { return m_text; }
    bool empty() const noexcept { return m_text.empty(); }

    friend bool operator==(const basic_istring& left, const basic_istring& right) noexcept {
        return EqualNoCase(left.m_text, right.m_text);
    }
    friend std::weak_ordering operator<=>(const basic_istring& left, const basic_istring& right) noexcept {
        return CompareNoCase(left.m_text, right.m_text) <=> 0;
    }

 private:
    std::wstring m_text;
};

}  // namespace quorbel
