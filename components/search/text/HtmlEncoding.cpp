#include "components/search/text/HtmlEncoding.h"

#include <algorithm>
#include <cctype>
#include <libxml/HTMLparser.h>
#include <map>

#include "components/search/text/TextEncoding.h"

namespace quorbel {

namespace {

/// Declarations stand within this many bytes.
constexpr std::size_t kDeclarationSpace = 4096;
constexpr std::size_t kLongestLabel = 40;

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& letter : lower) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter + 32);
    }
    return lower;
}

/// The name that stands behind "charset=" or "encoding=", with or without quotes, at `at` or later.
std::string LabelBehind(std::string_view text, std::string_view word, std::size_t at) {
    at = text.find(word, at);
    if (at == text.npos) return {};
    at = text.find_first_not_of(" \t\r\n", at + word.size());
    if (at == text.npos || text[at] != '=') return {};
    at = text.find_first_not_of(" \t\r\n\"'", at + 1);
    if (at == text.npos) return {};
    const auto isOfLabel = [](char letter) {
        return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-' || letter == '_' ||
               letter == ':' || letter == '.';
    };
    const auto* const end = std::find_if_not(text.begin() + at, text.end(), isOfLabel);
    const std::string_view label = text.substr(at, static_cast<std::size_t>(end - text.begin()) - at);
    return label.size() <= kLongestLabel ? std::string(label) : std::string();
}

std::string DeclaredEncoding(std::string_view bytes) {
    const std::string start = Lower(bytes.substr(0, kDeclarationSpace));
    if (start.starts_with("<?xml")) {
        const std::string label =
            LabelBehind(std::string_view(start).substr(0, start.find("?>")), "encoding", 0);
        if (!label.empty()) return label;
    }
    for (std::size_t at = start.find("<meta"); at != start.npos; at = start.find("<meta", at + 1)) {
        const std::string_view element = std::string_view(start).substr(at, start.find('>', at) - at);
        const std::string label = LabelBehind(element, "charset", 0);
        if (!label.empty()) return label;
    }
    return {};
}

/// What browsers take a label for, where that differs from what it says.
std::string EncodingOfLabel(const std::string& label) {
    static const std::map<std::string, std::string, std::less<>> kMeant{
        {"iso-8859-1", "windows-1252"},
        {"iso8859-1", "windows-1252"},
        {"latin1", "windows-1252"},
        {"us-ascii", "windows-1252"},
        {"ascii", "windows-1252"},
        {"iso-8859-9", "windows-1254"},
        {"gb2312", "gb18030"},
        {"gbk", "gb18030"},
        {"ks_c_5601-1987", "windows-949"},
        {"euc-kr", "windows-949"},
        {"shift_jis", "windows-31j"},
        {"x-sjis", "windows-31j"},
        {"sjis", "windows-31j"},
        {"utf-16", "utf-8"},
        {"utf-16le", "utf-8"},
        {"utf-16be", "utf-8"},
        {"unicode", "utf-8"},
        {"utf8", "utf-8"},
    };
    const auto found = kMeant.find(label);
    return found == kMeant.end() ? label : found->second;
}

std::string DecodeByDeclaration(std::string_view bytes) {
    const std::string encoding = EncodingOfLabel(DeclaredEncoding(bytes));
    if (encoding == "utf-8") return DecodeText(TextEncoding::Utf8, bytes);
    if (!encoding.empty() && encoding != "windows-1252") {
        if (std::optional<std::string> text = DecodeText(encoding, bytes)) return std::move(*text);
    }
    const bool isUtf8 = encoding.empty() && IsUtf8(bytes);
    return DecodeText(isUtf8 ? TextEncoding::Utf8 : TextEncoding::Windows1252, bytes);
}

/// The named characters of HTML. The library looks names up one after the other, which is too slow for a
/// text of nothing but references.
const std::map<std::string, std::uint32_t, std::less<>>& NamedCharacters() {
    static const auto kNamed = [] {
        constexpr unsigned kLastNamed = 0x2666;
        std::map<std::string, std::uint32_t, std::less<>> named;
        for (unsigned point = 1; point <= kLastNamed; ++point) {
            if (const htmlEntityDesc* entity = ::htmlEntityValueLookup(point)) named[entity->name] = point;
        }
        return named;
    }();
    return kNamed;
}

/// The number behind "&#", which is taken off; none when there is no digit.
std::optional<std::uint32_t> TakeNumber(std::string_view& text) noexcept {
    const bool isHex = text.starts_with('x') || text.starts_with('X');
    const std::string_view digits = isHex ? text.substr(1) : text;
    std::uint32_t number = 0;
    std::size_t count = 0;
    for (; count != digits.size(); ++count) {
        const auto letter = static_cast<unsigned char>(digits[count]);
        if (isHex ? std::isxdigit(letter) == 0 : std::isdigit(letter) == 0) break;
        const int value = std::isdigit(letter) != 0 ? letter - '0' : (letter | 0x20) - 'a' + 10;
        // Larger than every character from here on, whatever follows.
        if (number <= 0x10FFFF) number = number * (isHex ? 16 : 10) + static_cast<std::uint32_t>(value);
    }
    if (count == 0) return std::nullopt;
    text = digits.substr(count);
    return number;
}

void AppendNumbered(std::string& text, std::uint32_t number) {
    if (number == 0) return;
    AppendUtf8(text, number < 0x100 ? FromWindows1252(static_cast<unsigned char>(number)) : number);
}

/// Appends what a reference behind "&" stands for and takes it off; false when it is none.
bool AppendReference(std::string& text, std::string_view& rest) {
    if (rest.starts_with('#')) {
        std::string_view behind = rest.substr(1);
        const std::optional<std::uint32_t> number = TakeNumber(behind);
        if (!number) return false;
        AppendNumbered(text, *number);
        rest = behind;
    } else {
        constexpr std::size_t kLongestName = 10;
        std::size_t size = 0;
        while (size != rest.size() && size <= kLongestName &&
               std::isalnum(static_cast<unsigned char>(rest[size])) != 0) {
            ++size;
        }
        const auto found = NamedCharacters().find(rest.substr(0, size));
        if (found == NamedCharacters().end()) return false;
        AppendUtf8(text, found->second);
        rest.remove_prefix(size);
    }
    if (rest.starts_with(';')) rest.remove_prefix(1);
    return true;
}

}  // namespace

std::optional<std::string> DecodeHtml(std::string_view bytes) {
    if (const std::optional<TextEncoding> marked = TakeByteOrderMark(bytes)) {
        std::string text = DecodeText(*marked, bytes);
        if (text.find('\0') != text.npos) return std::nullopt;
        return text;
    }
    if (bytes.find('\0') != bytes.npos) return std::nullopt;
    return DecodeByDeclaration(bytes);
}

std::string WithoutReferences(std::string_view text) {
    std::string plain;
    plain.reserve(text.size());
    while (true) {
        const std::size_t mark = text.find('&');
        plain.append(text.substr(0, mark));
        if (mark == text.npos) return plain;
        text.remove_prefix(mark + 1);
        if (!AppendReference(plain, text)) plain.push_back('&');
    }
}

}  // namespace quorbel
