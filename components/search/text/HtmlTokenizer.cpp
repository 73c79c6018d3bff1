#include "components/search/text/HtmlTokenizer.h"

#include <algorithm>
#include <array>

namespace quorbel {

namespace {

constexpr std::string_view kBlanks = " \t\n\r\f";
/// Longer names are cut off: none that means anything has so many letters.
constexpr std::size_t kLongestName = 32;

bool IsLetter(char byte) noexcept {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

std::string LowerName(std::string_view name) {
    std::string lower(name.substr(0, kLongestName));
    for (char& letter : lower) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter + 32);
    }
    return lower;
}

bool StartsWithName(std::string_view text, std::string_view lowerName) noexcept {
    if (text.size() < lowerName.size()) return false;
    const auto isSame = [](char lower, char letter) {
        return (letter >= 'A' && letter <= 'Z' ? letter + 32 : letter) == lower;
    };
    if (!std::equal(lowerName.begin(), lowerName.end(), text.begin(), isSame)) return false;
    const std::string_view behind = text.substr(lowerName.size());
    return behind.empty() || behind[0] == '>' || behind[0] == '/' || kBlanks.find(behind[0]) != kBlanks.npos;
}

enum class RawText {
    No,
    Dropped,
    Kept  ///< its references are replaced
};

RawText RawTextOf(std::string_view name) noexcept {
    constexpr std::string_view kDropped[] = {"script", "style", "iframe", "noembed", "noframes"};
    constexpr std::string_view kKept[] = {"title", "textarea", "xmp"};
    if (std::find(std::begin(kDropped), std::end(kDropped), name) != std::end(kDropped))
        return RawText::Dropped;
    if (std::find(std::begin(kKept), std::end(kKept), name) != std::end(kKept)) return RawText::Kept;
    return RawText::No;
}

}  // namespace

void CHtmlTokenizer::Run() {
    while (!m_rest.empty()) {
        const std::size_t size = std::min(m_rest.find('<'), m_rest.size());
        if (size != 0) m_content.OnText(m_rest.substr(0, size));
        m_rest.remove_prefix(size);
        if (!m_rest.empty()) ReadMarkup();
    }
}

void CHtmlTokenizer::ReadMarkup() {
    const char next = m_rest.size() > 1 ? m_rest[1] : '\0';
    if (IsLetter(next)) {
        ReadStartTag();
    } else if (next == '/') {
        ReadEndTag();
    } else if (next == '!' || next == '?') {
        ReadDeclaration();
    } else {
        m_content.OnText(m_rest.substr(0, 1));
        m_rest.remove_prefix(1);
    }
}

void CHtmlTokenizer::ReadDeclaration() {
    constexpr std::string_view kComment = "<!--";
    constexpr std::string_view kPlainText = "<![CDATA[";
    if (m_rest.starts_with("<!-->") || m_rest.starts_with("<!--->") || !m_rest.starts_with("<!")) {
        SkipBehind(">");
    } else if (m_rest.starts_with(kComment)) {
        m_rest.remove_prefix(kComment.size());
        SkipBehind("-->");
    } else if (m_rest.starts_with(kPlainText)) {
        m_rest.remove_prefix(kPlainText.size());
        m_content.OnPlainText(m_rest.substr(0, m_rest.find("]]>")));
        SkipBehind("]]>");
    } else {
        SkipBehind(">");
    }
}

void CHtmlTokenizer::ReadStartTag() {
    m_rest.remove_prefix(1);
    const std::string name = TakeTagName();
    if (!TakeAttributes(name == "meta")) return;
    m_content.OnStartTag(name);
    if (RawTextOf(name) != RawText::No) ReadRawText(name);
}

void CHtmlTokenizer::ReadEndTag() {
    m_rest.remove_prefix(2);
    if (m_rest.empty() || !IsLetter(m_rest[0])) {
        SkipBehind(">");
        return;
    }
    const std::string name = TakeTagName();
    if (TakeAttributes(false)) m_content.OnEndTag(name);
}

std::string CHtmlTokenizer::TakeTagName() {
    const std::size_t size = std::min(m_rest.find_first_of(" \t\n\r\f/>"), m_rest.size());
    std::string name = LowerName(m_rest.substr(0, size));
    m_rest.remove_prefix(size);
    return name;
}

bool CHtmlTokenizer::TakeAttributes(bool isWanted) {
    while (true) {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\n\r\f/"), m_rest.size()));
        if (m_rest.empty()) return false;
        if (m_rest[0] == '>') {
            m_rest.remove_prefix(1);
            return true;
        }
        // A name may begin with "=".
        const std::size_t size = std::min(m_rest.find_first_of(" \t\n\r\f/>=", 1), m_rest.size());
        const std::string_view name = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        SkipBlanks();
        std::string_view value;
        if (m_rest.starts_with('=')) {
            m_rest.remove_prefix(1);
            value = TakeValue();
        }
        if (isWanted) m_content.OnAttribute(LowerName(name), value);
    }
}

std::string_view CHtmlTokenizer::TakeValue() {
    SkipBlanks();
    const char quote = m_rest.empty() ? '\0' : m_rest[0];
    const bool isQuoted = quote == '"' || quote == '\'';
    if (isQuoted) m_rest.remove_prefix(1);
    const std::size_t size =
        std::min(isQuoted ? m_rest.find(quote) : m_rest.find_first_of(" \t\n\r\f>"), m_rest.size());
    const std::string_view value = m_rest.substr(0, size);
    m_rest.remove_prefix(std::min(size + (isQuoted ? 1 : 0), m_rest.size()));
    return value;
}

void CHtmlTokenizer::ReadRawText(std::string_view name) {
    std::size_t end = m_rest.find("</");
    while (end != m_rest.npos && !StartsWithName(m_rest.substr(end + 2), name))
        end = m_rest.find("</", end + 2);
    end = std::min(end, m_rest.size());
    if (RawTextOf(name) == RawText::Kept) m_content.OnText(m_rest.substr(0, end));
    m_rest.remove_prefix(end);
}

void CHtmlTokenizer::SkipBehind(std::string_view mark) noexcept {
    const std::size_t at = m_rest.find(mark);
    m_rest.remove_prefix(at == m_rest.npos ? m_rest.size() : at + mark.size());
}

void CHtmlTokenizer::SkipBlanks() noexcept {
    m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size()));
}

}  // namespace quorbel
