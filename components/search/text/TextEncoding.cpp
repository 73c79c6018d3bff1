#include "components/search/text/TextEncoding.h"

#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <unicode/ucnv.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

namespace quorbel {

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

/// How many bytes `bytes` begins with that are ASCII.
std::size_t AsciiLength(std::string_view bytes) noexcept {
    std::size_t length = 0;
    for (std::uint64_t block = 0; length + sizeof block <= bytes.size(); length += sizeof block) {
        std::memcpy(&block, bytes.data() + length, sizeof block);
        if ((block & 0x8080808080808080) != 0) break;
    }
    while (length != bytes.size() && static_cast<unsigned char>(bytes[length]) < 0x80) ++length;
    return length;
}

/// The first character, which is taken off; less than 0 when it is invalid.
UChar32 TakeUtf8(std::string_view& bytes) noexcept {
    const auto* units = reinterpret_cast<const std::uint8_t*>(bytes.data());
    const auto size = static_cast<std::int32_t>(std::min<std::size_t>(bytes.size(), U8_MAX_LENGTH));
    std::int32_t index = 0;
    UChar32 point = 0;
    U8_NEXT(units, index, size, point);
    bytes.remove_prefix(static_cast<std::size_t>(index));
    return point;
}

std::string FromUtf8Lossy(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t ascii = AsciiLength(bytes);
        text.append(bytes.substr(0, ascii));
        bytes.remove_prefix(ascii);
        if (bytes.empty()) break;
        const UChar32 point = TakeUtf8(bytes);
        AppendUtf8(text, point < 0 ? kReplacement : static_cast<std::uint32_t>(point));
    }
    return text;
}

std::string FromUtf16(std::string_view bytes, bool isLittleEndian) {
    const auto unitAt = [&](std::size_t index) {
        const auto first = static_cast<unsigned char>(bytes[index]);
        const auto second = static_cast<unsigned char>(bytes[index + 1]);
        return static_cast<std::uint32_t>(isLittleEndian ? first | second << 8 : first << 8 | second);
    };
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        std::uint32_t point = unitAt(i);
        if (U16_IS_LEAD(point) && i + 3 < bytes.size() && U16_IS_TRAIL(unitAt(i + 2))) {
            point = static_cast<std::uint32_t>(U16_GET_SUPPLEMENTARY(point, unitAt(i + 2)));
            i += 2;
        }
        AppendUtf8(text, point);
    }
    return text;
}

std::string FromWindows1252Text(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 8);
    while (!bytes.empty()) {
        const std::size_t ascii = AsciiLength(bytes);
        text.append(bytes.substr(0, ascii));
        bytes.remove_prefix(ascii);
        if (bytes.empty()) break;
        AppendUtf8(text, FromWindows1252(static_cast<unsigned char>(bytes.front())));
        bytes.remove_prefix(1);
    }
    return text;
}

}  // namespace

bool IsUtf8(std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        bytes.remove_prefix(AsciiLength(bytes));
        if (!bytes.empty() && TakeUtf8(bytes) < 0) return false;
    }
    return true;
}

void AppendUtf8(std::string& text, std::uint32_t point) {
    if (point > 0x10FFFF || U_IS_SURROGATE(point)) point = kReplacement;
    std::array<char, U8_MAX_LENGTH> units{};
    std::size_t size = 0;
    U8_APPEND_UNSAFE(units, size, point);
    text.append(units.data(), size);
}

std::string_view CutUtf8(std::string_view text, std::size_t most) noexcept {
    if (text.size() <= most) return text;
    while (most > 0 && U8_IS_TRAIL(text[most])) --most;
    return text.substr(0, most);
}

std::optional<TextEncoding> TakeByteOrderMark(std::string_view& bytes) noexcept {
    constexpr std::pair<std::string_view, TextEncoding> kMarks[] = {
        {"\xEF\xBB\xBF", TextEncoding::Utf8},
        {"\xFF\xFE", TextEncoding::Utf16LittleEndian},
        {"\xFE\xFF", TextEncoding::Utf16BigEndian},
    };
    for (const auto& [mark, encoding] : kMarks) {
        if (!bytes.starts_with(mark)) continue;
        bytes.remove_prefix(mark.size());
        return encoding;
    }
    return std::nullopt;
}

std::string DecodeText(TextEncoding encoding, std::string_view bytes) {
    switch (encoding) {
        case TextEncoding::Utf8: return FromUtf8Lossy(bytes);
        case TextEncoding::Utf16LittleEndian: return FromUtf16(bytes, true);
        case TextEncoding::Utf16BigEndian: return FromUtf16(bytes, false);
        case TextEncoding::Windows1252: break;
    }
    return FromWindows1252Text(bytes);
}

std::optional<std::string> DecodeText(const std::string& name, std::string_view bytes) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UConverter, decltype(&ucnv_close)> converter(ucnv_open(name.c_str(), &status),
                                                                       &ucnv_close);
    if (!converter || bytes.size() > std::numeric_limits<std::int32_t>::max() / 4) return std::nullopt;
    // No encoding makes more than three bytes of UTF-8 of one of its own.
    std::string text(bytes.size() * 3 + 16, '\0');
    const std::int32_t size =
        ucnv_toAlgorithmic(UCNV_UTF8, converter.get(), text.data(), static_cast<std::int32_t>(text.size()),
                           bytes.data(), static_cast<std::int32_t>(bytes.size()), &status);
    if (U_FAILURE(status)) return std::nullopt;
    text.resize(static_cast<std::size_t>(size));
    if (!IsUtf8(text)) return FromUtf8Lossy(text);
    return text;
}

std::uint32_t FromWindows1252(unsigned char byte) noexcept {
    constexpr std::array<std::uint16_t, 32> kSpecial{
        0x20AC, 0x81,   0x201A, 0x192,  0x201E, 0x2026, 0x2020, 0x2021, 0x2C6,  0x2030, 0x160,
        0x2039, 0x152,  0x8D,   0x17D,  0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x2DC,  0x2122, 0x161,  0x203A, 0x153,  0x9D,   0x17E,  0x178};
    return byte >= 0x80 && byte < 0xA0 ? kSpecial[byte - 0x80U] : byte;
}

}  // namespace quorbel
