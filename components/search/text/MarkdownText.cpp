#include "components/search/text/MarkdownText.h"

#include <algorithm>

#include "components/search/text/TextEncoding.h"

namespace quorbel {

namespace {

std::string_view Trimmed(std::string_view text) noexcept {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string_view TakeLine(std::string_view& lines) noexcept {
    const std::size_t end = lines.find('\n');
    const std::string_view line = lines.substr(0, end);
    lines.remove_prefix(end == lines.npos ? lines.size() : end + 1);
    return line;
}

std::string_view Unquoted(std::string_view value) noexcept {
    const bool isQuoted =
        value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front();
    return isQuoted ? value.substr(1, value.size() - 2) : value;
}

/// The text of a heading of one line ("## Text ##"), none for another line.
std::string_view HeadingText(std::string_view line) noexcept {
    const std::size_t level = line.find_first_not_of('#');
    if (level == 0 || level == line.npos || level > 6 || (line[level] != ' ' && line[level] != '\t'))
        return {};
    std::string_view text = Trimmed(line.substr(level));
    const std::size_t end = text.find_last_not_of('#');
    if (end == text.npos) return {};
    // A closing row of marks is one only behind a blank.
    return end + 1 < text.size() && text[end] == ' ' ? Trimmed(text.substr(0, end)) : text;
}

bool IsUnderline(std::string_view line) noexcept {
    line = Trimmed(line);
    return !line.empty() && (line[0] == '=' || line[0] == '-') &&
           line.find_first_not_of(line[0]) == line.npos;
}

class CMarkdownReader {
 public:
    CExtractedText Read(std::string_view lines) {
        ReadFrontMatter(lines);
        while (!lines.empty()) ReadLine(TakeLine(lines));
        return std::move(m_result);
    }

 private:
    /// Takes the lines between two "---" off; without a second one they are none.
    void ReadFrontMatter(std::string_view& lines) {
        std::string_view rest = lines;
        if (Trimmed(TakeLine(rest)) != "---") return;
        const std::string_view matter = rest;
        while (!rest.empty()) {
            const std::size_t size = matter.size() - rest.size();
            const std::string_view line = Trimmed(TakeLine(rest));
            if (line != "---" && line != "...") continue;
            ReadFields(matter.substr(0, size));
            lines = rest;
            return;
        }
    }

    void ReadFields(std::string_view lines) {
        while (!lines.empty()) {
            const std::string_view line = TakeLine(lines);
            const std::size_t colon = line.find(':');
            if (colon == line.npos) continue;
            const std::string_view name = line.substr(0, colon);
            const std::string_view value = Unquoted(Trimmed(line.substr(colon + 1)));
            if (name == "title") m_result.title = CutUtf8(value, kLargestProperty);
            if (name == "author") m_result.author = CutUtf8(value, kLargestProperty);
            AddText(value);
        }
    }

    void ReadLine(std::string_view line) {
        const std::string_view start = Trimmed(line);
        if (start.starts_with("```") || start.starts_with("~~~")) {
            m_isInCode = !m_isInCode;
        } else if (m_isInCode) {
            m_result.text.append(line).push_back('\n');
        } else if (const std::string_view heading = HeadingText(start); !heading.empty()) {
            UseAsTitle(heading);
            AddText(heading);
        } else if (IsUnderline(line)) {
            UseAsTitle(m_previous);
        } else {
            AddText(line);
        }
        m_previous = m_isInCode ? std::string_view() : start;
    }

    void UseAsTitle(std::string_view heading) {
        if (!m_result.title.empty()) return;
        std::string title(heading);
        std::erase_if(title, [](char mark) { return mark == '*' || mark == '`'; });
        m_result.title = CutUtf8(title, kLargestProperty);
    }

    void AddText(std::string_view line) {
        for (std::size_t i = 0; i != line.size(); ++i) {
            if (line[i] == '`') continue;
            if (line.substr(i).starts_with("**")) {
                ++i;
                continue;
            }
            m_result.text.push_back(line[i]);
        }
        m_result.text.push_back('\n');
    }

    CExtractedText m_result;
    std::string_view m_previous;
    bool m_isInCode = false;
};

}  // namespace

CExtractedText ReadMarkdown(std::string_view lines) {
    return CMarkdownReader().Read(lines);
}

}  // namespace quorbel
