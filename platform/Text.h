#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// Conversions between the wide strings of the service (one wchar_t a code point), UTF-8 and UTF-16. None of
/// them throws. Where the input is invalid, the plain forms put U+FFFD and the strict ones give nothing.
/// Surrogates, values above U+10FFFF and overlong forms are invalid everywhere.
std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view bytes);
std::optional<std::wstring> FromUtf8Strict(std::string_view bytes);
std::u16string ToUtf16(std::wstring_view text);
std::wstring FromUtf16(std::u16string_view units);

/// UTF-16 as bytes, little-endian, without terminator. An odd last byte is ignored when reading.
std::string ToUtf16Bytes(std::wstring_view text);
std::wstring FromUtf16Bytes(std::string_view bytes);

/// Lower case, one character at a time, by a fixed locale: independent of the process's, and in every script.
wchar_t FoldCase(wchar_t character) noexcept;
std::wstring FoldCase(std::wstring_view text);
/// Less than, equal to or greater than 0, without regard to case.
int CompareNoCase(std::wstring_view left, std::wstring_view right) noexcept;
inline bool EqualNoCase(std::wstring_view left, std::wstring_view right) noexcept {
    return left.size() == right.size() && CompareNoCase(left, right) == 0;
}
bool StartsWithNoCase(std::wstring_view text, std::wstring_view start) noexcept;

/// Orders a map's text keys without regard to case.
struct CLessNoCase {
    using is_transparent = void;
    bool operator()(std::wstring_view left, std::wstring_view right) const noexcept {
        return CompareNoCase(left, right) < 0;
    }
};

/// Reads the decimal digits that `text` begins with and moves it past them. None when there is no digit or
/// the number needs more than 64 bits (`text` is then unchanged).
std::optional<std::uint64_t> TakeDecimal(std::wstring_view& text) noexcept;

/// "%8.8X"-like text: upper-case hexadecimal, at least `width` digits.
std::wstring ToHex(std::uint64_t number, int width);

/// Value of a hexadecimal digit, or -1.
int HexDigit(wchar_t character) noexcept;
/// The number that one to `most` (at most 16) hexadecimal digits and nothing else make.
std::optional<std::uint64_t> ParseHex(std::wstring_view text, std::size_t most) noexcept;

/// A text as it stands between the apostrophes of an SQL literal.
std::wstring DoubleApostrophes(std::wstring_view text);

/// Without blanks and tabs at both ends.
std::wstring_view Trim(std::wstring_view text) noexcept;

}  // namespace quorbel
