#include "platform/UrlPath.h"

#include <algorithm>
#include <vector>

#include "platform/Text.h"

namespace quorbel {

namespace {

bool IsControl(wchar_t character) noexcept {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F);
}

bool IsDotSegment(std::wstring_view segment) noexcept {
    return segment == L"." || segment == L"..";
}

/// Resolves "." and ".." (RFC 3986, section 5.2.4); none when a ".." finds no segment to take back.
std::optional<std::wstring> ResolveDotSegments(std::wstring_view path) {
    std::vector<std::wstring_view> segments;
    std::size_t start = 1;
    for (bool last = false; !last;) {
        std::size_t end = path.find(L'/', start);
        last = end == std::wstring_view::npos;
        if (last) end = path.size();
        const std::wstring_view segment = path.substr(start, end - start);
        start = end + 1;
        if (segment == L"..") {
            if (segments.empty()) return std::nullopt;
            segments.pop_back();
        }
        if (!IsDotSegment(segment)) {
            segments.push_back(segment);
        } else if (last) {
            segments.emplace_back();
        }
    }
    std::wstring resolved;
    for (std::wstring_view segment : segments) resolved.append(L"/").append(segment);
    return resolved;
}

bool IsUnreserved(char byte) noexcept {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           byte == '-' || byte == '.' || byte == '_' || byte == '~';
}

}  // namespace

void AppendPercentEncoded(std::string& text, char byte) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    text.append({'%', kDigits[value >> 4], kDigits[value & 0xF]});
}

std::optional<std::string> PercentDecode(std::string_view encoded) {
    std::string bytes;
    bytes.reserve(encoded.size());
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] != '%') {
            bytes.push_back(encoded[i]);
            continue;
        }
        if (encoded.size() - i < 3) return std::nullopt;
        const int high = HexDigit(static_cast<unsigned char>(encoded[i + 1]));
        const int low = HexDigit(static_cast<unsigned char>(encoded[i + 2]));
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<char>(high << 4 | low));
        i += 2;
    }
    return bytes;
}

bool CUrlPath::IsPlain(std::string_view encoded) noexcept {
    if (encoded.empty() || encoded.front() != '/') return false;
    char previous = '\0';
    for (char byte : encoded) {
        if (!IsUnreserved(byte) && byte != '/') return false;
        if (previous == '/' && (byte == '.' || byte == '/')) return false;
        previous = byte;
    }
    return true;
}

std::variant<CUrlPath, CUrlPath::Refusal> CUrlPath::Parse(std::string_view encoded) {
    if (encoded.size() > kMaximumLength) return Refusal::TooLong;
    if (IsPlain(encoded)) return CUrlPath(std::wstring(encoded.begin(), encoded.end()));
    if (encoded.empty()) return CUrlPath(L"/");
    if (encoded == "*") return CUrlPath(L"*");
    const auto bytes = PercentDecode(encoded);
    if (!bytes) return Refusal::Malformed;
    auto text = FromUtf8Strict(*bytes);
    if (!text || std::any_of(text->begin(), text->end(), IsControl)) return Refusal::Malformed;
    std::replace(text->begin(), text->end(), L'\\', L'/');
    if (text->front() != L'/') return Refusal::Malformed;
    auto resolved = ResolveDotSegments(*text);
    if (!resolved) return Refusal::Malformed;
    return CUrlPath(std::move(*resolved));
}

std::string CUrlPath::Encoded() const {
    if (m_text == L"*") return "*";
    std::string encoded;
    for (char byte : ToUtf8(m_text)) {
        if (IsUnreserved(byte) || byte == '/') {
            encoded.push_back(byte);
        } else {
            AppendPercentEncoded(encoded, byte);
        }
    }
    return encoded;
}

bool StaysWithin(std::wstring_view folder, std::wstring_view path) noexcept {
    if (!path.starts_with(folder) || path.find(L'\0') != std::wstring_view::npos) return false;
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find_first_of(L"/\\", start), path.size());
        if (end > folder.size() && IsDotSegment(path.substr(start, end - start))) return false;
        start = end + 1;
    }
    return true;
}

}  // namespace quorbel
