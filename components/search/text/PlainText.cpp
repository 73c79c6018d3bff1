#include "components/search/text/PlainText.h"

#include <array>

#include "components/search/text/TextEncoding.h"

namespace quorbel {

namespace {

/// What a byte of UTF-8 is to a reader of lines.
enum class ByteKind : unsigned char { Text, Control, CarriageReturn };

constexpr std::array<ByteKind, 256> kKinds = [] {
    std::array<ByteKind, 256> kinds{};
    for (std::size_t byte = 0; byte != ' '; ++byte) kinds[byte] = ByteKind::Control;
    kinds['\t'] = kinds['\n'] = ByteKind::Text;
    kinds['\r'] = ByteKind::CarriageReturn;
    kinds[0x7F] = ByteKind::Control;
    return kinds;
}();

ByteKind KindOf(char byte) noexcept {
    return kKinds[static_cast<unsigned char>(byte)];
}

/// Texts of terminals and printers hold some control characters; bytes without meaning have one in eight.
bool IsMostlyControl(std::string_view text) noexcept {
    std::size_t count = 0;
    for (const char byte : text) count += KindOf(byte) == ByteKind::Control ? 1U : 0U;
    // The other half of the control characters.
    for (std::size_t at = text.find('\xC2'); at != text.npos; at = text.find('\xC2', at + 1)) {
        if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0) ++count;
    }
    return count > text.size() / 16;
}

}  // namespace

std::string CleanLines(std::string_view text) {
    std::string clean;
    clean.reserve(text.size());
    std::size_t i = 0;
    while (i != text.size()) {
        const std::size_t start = i;
        while (i != text.size() && KindOf(text[i]) == ByteKind::Text) ++i;
        clean.append(text.substr(start, i - start));
        if (i == text.size()) break;
        if (KindOf(text[i]) == ByteKind::Control) {
            clean.push_back(' ');
        } else if (i + 1 == text.size() || text[i + 1] != '\n') {
            clean.push_back('\n');
        }
        ++i;
    }
    return clean;
}

std::optional<std::string> ReadPlainText(std::string_view bytes) {
    std::optional<TextEncoding> encoding = TakeByteOrderMark(bytes);
    if (!encoding) encoding = IsUtf8(bytes) ? TextEncoding::Utf8 : TextEncoding::Windows1252;
    const std::string text = DecodeText(*encoding, bytes);
    if (text.find('\0') != text.npos || IsMostlyControl(text)) return std::nullopt;
    return CleanLines(text);
}

}  // namespace quorbel
