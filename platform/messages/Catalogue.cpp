#include "platform/messages/Catalogue.h"

#include <map>
#include <optional>

#include "platform/Text.h"

namespace quorbel {

namespace {

using Names = std::map<std::wstring, std::uint32_t, CLessNoCase>;

constexpr std::wstring_view kBlanks = L" \t";

/// A decimal number or one in hexadecimal after "0x", of at most `limit`; the text is nothing else.
std::optional<std::uint32_t> ParseNumber(std::wstring_view text, std::uint32_t limit) {
    const int base = StartsWithNoCase(text, L"0x") ? 16 : 10;
    if (base == 16) text.remove_prefix(2);
    if (text.empty()) return std::nullopt;
    std::uint64_t number = 0;
    for (wchar_t character : text) {
        const int digit = HexDigit(character);
        if (digit < 0 || digit >= base) return std::nullopt;
        number = number * static_cast<std::uint64_t>(base) + static_cast<std::uint64_t>(digit);
        if (number > limit) return std::nullopt;
    }
    return static_cast<std::uint32_t>(number);
}

struct CStatement {
    std::wstring_view keyword;
    std::wstring_view value;
};

std::optional<CStatement> ParseStatement(std::wstring_view line) {
    const std::size_t equals = line.find(L'=');
    if (equals == std::wstring_view::npos) return std::nullopt;
    return CStatement{Trim(line.substr(0, equals)), Trim(line.substr(equals + 1))};
}

class CParser {
 public:
    explicit CParser(std::wstring_view text) : m_rest(text) {}

    std::optional<CatalogueTexts> Parse() {
        while (TakeStatementLine()) {
            const auto statement = ParseStatement(m_line);
            if (!statement || !Handle(*statement)) return std::nullopt;
        }
        if (m_state == State::Entry) return std::nullopt;
        return std::move(m_texts);
    }

 private:
    enum class State {
        Header,  ///< no entry yet
        Entry,   ///< after MessageId, before the first text
        Texts    ///< after a text
    };

    bool TakeLine() {
        if (m_rest.empty()) return false;
        const std::size_t end = m_rest.find(L'\n');
        m_line = m_rest.substr(0, end);
        m_rest = end == std::wstring_view::npos ? std::wstring_view() : m_rest.substr(end + 1);
        if (!m_line.empty() && m_line.back() == L'\r') m_line.remove_suffix(1);
        return true;
    }

    bool TakeStatementLine() {
        while (TakeLine()) {
            if (!Trim(m_line).empty() && m_line.front() != L';') return true;
        }
        return false;
    }

    bool Handle(const CStatement& statement) {
        if (EqualNoCase(statement.keyword, L"MessageId")) return BeginEntry(statement.value);
        if (EqualNoCase(statement.keyword, L"Language")) return ReadText(statement.value);
        switch (m_state) {
            case State::Header: return HandleHeader(statement);
            case State::Entry: return HandleEntry(statement);
            case State::Texts: return false;
        }
        return false;
    }

    bool HandleHeader(const CStatement& statement) {
        if (EqualNoCase(statement.keyword, L"MessageIdTypedef")) return !statement.value.empty();
        if (EqualNoCase(statement.keyword, L"SeverityNames"))
            return ReadNames(statement.value, 3, m_severities);
        if (EqualNoCase(statement.keyword, L"FacilityNames"))
            return ReadNames(statement.value, 0xFFF, m_facilities);
        if (EqualNoCase(statement.keyword, L"LanguageNames"))
            return ReadNames(statement.value, 0xFFFF, m_languages);
        return false;
    }

    bool HandleEntry(const CStatement& statement) {
        if (EqualNoCase(statement.keyword, L"Severity"))
            return Choose(m_severities, statement.value, m_severity, m_severityGiven);
        if (EqualNoCase(statement.keyword, L"Facility"))
            return Choose(m_facilities, statement.value, m_facility, m_facilityGiven);
        if (!EqualNoCase(statement.keyword, L"SymbolicName") || statement.value.empty()) return false;
        return !std::exchange(m_symbolGiven, true);
    }

    static bool Choose(const Names& names, std::wstring_view name, std::uint32_t& chosen, bool& given) {
        const auto found = names.find(name);
        if (found == names.end() || std::exchange(given, true)) return false;
        chosen = found->second;
        return true;
    }

    bool BeginEntry(std::wstring_view value) {
        if (m_state == State::Entry) return false;
        constexpr std::uint32_t kLargest = 0xFFFF;
        const bool relative = value.empty() || value.front() == L'+';
        const std::wstring_view digits = value.empty() ? L"1" : value.substr(relative ? 1 : 0);
        const auto number = ParseNumber(digits, relative ? kLargest - m_number : kLargest);
        if (!number) return false;
        m_number = relative ? m_number + *number : *number;
        m_severityGiven = m_facilityGiven = m_symbolGiven = m_englishGiven = false;
        m_state = State::Entry;
        return true;
    }

    bool ReadText(std::wstring_view language) {
        if (m_state == State::Header || !m_languages.contains(language)) return false;
        std::wstring text;
        while (TakeLine()) {
            if (m_line != L".") {
                text.append(m_line).append(L"\r\n");
                continue;
            }
            m_state = State::Texts;
            return !EqualNoCase(language, L"English") || Keep(std::move(text));
        }
        return false;
    }

    bool Keep(std::wstring text) {
        const std::uint32_t id = m_severity << 30 | m_facility << 16 | m_number;
        return !std::exchange(m_englishGiven, true) && m_texts.emplace(id, std::move(text)).second;
    }

    /// Reads "(NAME=NUMBER[:SYMBOL] ...)", which may go on over the next lines.
    bool ReadNames(std::wstring_view value, std::uint32_t limit, Names& names) {
        if (value.empty() || value.front() != L'(') return false;
        value.remove_prefix(1);
        for (;;) {
            const std::size_t end = value.find(L')');
            if (!ReadNameList(value.substr(0, end), limit, names)) return false;
            if (end != std::wstring_view::npos) return Trim(value.substr(end + 1)).empty();
            if (!TakeStatementLine()) return false;
            value = m_line;
        }
    }

    static bool ReadNameList(std::wstring_view list, std::uint32_t limit, Names& names) {
        for (list = Trim(list); !list.empty(); list = Trim(list)) {
            const std::wstring_view item = list.substr(0, list.find_first_of(kBlanks));
            list.remove_prefix(item.size());
            const std::size_t equals = item.find(L'=');
            if (equals == 0 || equals == std::wstring_view::npos) return false;
            std::wstring_view digits = item.substr(equals + 1);
            digits = digits.substr(0, digits.find(L':'));
            const auto number = ParseNumber(digits, limit);
            if (!number) return false;
            names.insert_or_assign(std::wstring(item.substr(0, equals)), *number);
        }
        return true;
    }

    std::wstring_view m_rest;
    std::wstring_view m_line;
    State m_state = State::Header;
    Names m_severities{{L"Success", 0}, {L"Informational", 1}, {L"Warning", 2}, {L"Error", 3}};
    Names m_facilities;
    Names m_languages{{L"English", 0x409}};
    std::uint32_t m_severity = 0;
    std::uint32_t m_facility = 0;
    std::uint32_t m_number = 0;
    bool m_severityGiven = false;
    bool m_facilityGiven = false;
    bool m_symbolGiven = false;
    bool m_englishGiven = false;
    CatalogueTexts m_texts;
};

}  // namespace

std::optional<CatalogueTexts> ParseCatalogue(std::string_view catalogue) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (catalogue.starts_with(kByteOrderMark)) catalogue.remove_prefix(kByteOrderMark.size());
    if (catalogue.find('\0') != std::string_view::npos) return std::nullopt;
    const auto text = FromUtf8Strict(catalogue);
    if (!text) return std::nullopt;
    return CParser(*text).Parse();
}

}  // namespace quorbel
