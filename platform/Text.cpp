#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <limits>
#include <locale.h>
#include <wctype.h>

namespace quorbel {

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

bool IsScalarValue(std::uint32_t point) noexcept {
    return point < 0xD800 || (point > 0xDFFF && point <= 0x10FFFF);
}

/// Decodes one code point and advances; none for an invalid sequence, of which one maximal part is consumed.
std::optional<wchar_t> TakeUtf8(std::string_view& bytes) noexcept {
    const auto lead = static_cast<unsigned char>(bytes[0]);
    if (lead < 0x80) {
        bytes.remove_prefix(1);
        return static_cast<wchar_t>(lead);
    }
    std::size_t length = 0;
    std::uint32_t point = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, point = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, point = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, point = lead & 0x07;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        bytes.remove_prefix(1);
        return std::nullopt;
    }
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0;
        if (next < low || next > high) {
            bytes.remove_prefix(i);
            return std::nullopt;
        }
        point = point << 6 | (next & 0x3F);
        low = 0x80, high = 0xBF;
    }
    bytes.remove_prefix(length);
    return static_cast<wchar_t>(point);
}

/// Writes one code point and says where the next one goes.
char* PutUtf8(char* to, std::uint32_t point) noexcept {
    const auto put = [&](std::uint32_t byte) { *to++ = static_cast<char>(byte); };
    if (point < 0x80) {
        put(point);
        return to;
    }
    if (point < 0x800) {
        put(0xC0 | point >> 6);
    } else {
        if (point < 0x10000) {
            put(0xE0 | point >> 12);
        } else {
            put(0xF0 | point >> 18);
            put(0x80 | (point >> 12 & 0x3F));
        }
        put(0x80 | (point >> 6 & 0x3F));
    }
    put(0x80 | (point & 0x3F));
    return to;
}

/// Narrows the characters that `text` begins with as long as they are ASCII, a block at a time; how many.
std::size_t CopyAscii(std::wstring_view text, char* to) noexcept {
    constexpr std::size_t kBlock = 16;
    std::size_t count = 0;
    while (count + kBlock <= text.size()) {
        std::uint32_t all = 0;
        for (std::size_t i = 0; i != kBlock; ++i) all |= static_cast<std::uint32_t>(text[count + i]);
        if (all >= 0x80) return count;
        for (std::size_t i = 0; i != kBlock; ++i) to[count + i] = static_cast<char>(text[count + i]);
        count += kBlock;
    }
    for (; count != text.size() && static_cast<std::uint32_t>(text[count]) < 0x80; ++count) {
        to[count] = static_cast<char>(text[count]);
    }
    return count;
}

locale_t FoldingLocale() noexcept {
    static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
    std::string bytes(text.size(), '\0');
    const std::size_t ascii = CopyAscii(text, bytes.data());
    if (ascii == text.size()) return bytes;
    constexpr std::size_t kLongest = 4;
    bytes.resize(ascii + kLongest * (text.size() - ascii));
    char* end = bytes.data() + ascii;
    for (const wchar_t character : text.substr(ascii)) {
        const auto point = static_cast<std::uint32_t>(character);
        end = PutUtf8(end, IsScalarValue(point) ? point : kReplacement);
    }
    bytes.resize(static_cast<std::size_t>(end - bytes.data()));
    return bytes;
}

std::wstring FromUtf8(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size());
    while (!bytes.empty()) text.push_back(TakeUtf8(bytes).value_or(kReplacement));
    return text;
}

std::optional<std::wstring> FromUtf8Strict(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const auto character = TakeUtf8(bytes);
        if (!character) return std::nullopt;
        text.push_back(*character);
    }
    return text;
}

std::u16string ToUtf16(std::wstring_view text) {
    std::u16string units;
    units.reserve(text.size());
    for (wchar_t character : text) {
        auto point = static_cast<std::uint32_t>(character);
        if (!IsScalarValue(point)) point = kReplacement;
        if (point < 0x10000) {
            units.push_back(static_cast<char16_t>(point));
        } else {
            units.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

std::wstring FromUtf16(std::u16string_view units) {
    std::wstring text;
    text.reserve(units.size());
    for (std::size_t i = 0; i < units.size(); ++i) {
        const std::uint32_t unit = units[i];
        const bool high = unit >= 0xD800 && unit <= 0xDBFF;
        if (high && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            text.push_back(static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (units[i + 1] - 0xDC00)));
            ++i;
        } else {
            text.push_back(IsScalarValue(unit) ? static_cast<wchar_t>(unit) : kReplacement);
        }
    }
    return text;
}

std::string ToUtf16Bytes(std::wstring_view text) {
    std::string bytes;
    bytes.reserve(text.size() * 2);
    for (char16_t unit : ToUtf16(text)) {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
    }
    return bytes;
}

std::wstring FromUtf16Bytes(std::string_view bytes) {
    std::u16string units;
    units.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        units.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                              static_cast<unsigned char>(bytes[i + 1]) << 8));
    }
    return FromUtf16(units);
}

wchar_t FoldCase(wchar_t character) noexcept {
    if (character < 0x80) return character >= L'A' && character <= L'Z' ? character + 32 : character;
    return static_cast<wchar_t>(::towlower_l(static_cast<wint_t>(character), FoldingLocale()));
}

std::wstring FoldCase(std::wstring_view text) {
    std::wstring folded(text);
    for (wchar_t& character : folded) character = FoldCase(character);
    return folded;
}

int CompareNoCase(std::wstring_view left, std::wstring_view right) noexcept {
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < common; ++i) {
        const wchar_t a = FoldCase(left[i]);
        const wchar_t b = FoldCase(right[i]);
        if (a != b) return a < b ? -1 : 1;
    }
    if (left.size() == right.size()) return 0;
    return left.size() < right.size() ? -1 : 1;
}

bool StartsWithNoCase(std::wstring_view text, std::wstring_view start) noexcept {
    return text.size() >= start.size() && EqualNoCase(text.substr(0, start.size()), start);
}

std::optional<std::uint64_t> TakeDecimal(std::wstring_view& text) noexcept {
    std::uint64_t number = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && text[digits] >= L'0' && text[digits] <= L'9'; ++digits) {
        const auto digit = static_cast<std::uint64_t>(text[digits] - L'0');
        if (number > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) return std::nullopt;
        number = number * 10 + digit;
    }
    if (digits == 0) return std::nullopt;
    text.remove_prefix(digits);
    return number;
}

std::wstring ToHex(std::uint64_t number, int width) {
    std::array<wchar_t, 32> buffer{};
    const int length = std::swprintf(buffer.data(), buffer.size(), L"%.*llX", width,
                                     static_cast<unsigned long long>(number));
    return {buffer.data(), static_cast<std::size_t>(length)};
}

int HexDigit(wchar_t character) noexcept {
    if (character >= L'0' && character <= L'9') return character - L'0';
    if (character >= L'a' && character <= L'f') return character - L'a' + 10;
    if (character >= L'A' && character <= L'F') return character - L'A' + 10;
    return -1;
}

std::optional<std::uint64_t> ParseHex(std::wstring_view text, std::size_t most) noexcept {
    if (text.empty() || text.size() > most) return std::nullopt;
    std::uint64_t number = 0;
    for (wchar_t character : text) {
        const int digit = HexDigit(character);
        if (digit < 0) return std::nullopt;
        number = number << 4 | static_cast<std::uint64_t>(digit);
    }
    return number;
}

std::wstring_view Trim(std::wstring_view text) noexcept {
    constexpr std::wstring_view kBlanks = L" \t";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::wstring DoubleApostrophes(std::wstring_view text) {
    std::wstring doubled;
    for (const wchar_t character : text) doubled.append(character == L'\'' ? 2 : 1, character);
    return doubled;
}

}  // namespace quorbel
