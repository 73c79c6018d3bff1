#include "components/provider/OdbcStatement.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

using std::string_view_literals::operator""sv;

constexpr std::array kFunctions{"http_provenance"sv, "http_header"sv, "script_library"sv, "script_resource"sv,
                                "script_action"sv};
constexpr std::string_view kDecode = "http_decode";
constexpr std::array kTransactionWords{"begin"sv, "start"sv,     "commit"sv,  "end"sv,    "rollback"sv,
                                       "abort"sv, "savepoint"sv, "release"sv, "prepare"sv};

template <class Words>
bool IsOneOf(std::string_view word, const Words& words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool IsWordStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}
bool IsWordPart(char c) {
    return IsWordStart(c) || (c >= '0' && c <= '9') || c == '$';
}
bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Goes through a statement once, sees its words and writes the text for the server.
class CScan {
 public:
    CScan(const CSqlStatement& statement, COdbcStatement& parsed);
    HRESULT Run();

 private:
    void Step();
    void Word();
    void DollarQuote();
    void Quoted(char quote, bool backslashes);
    void LineComment();
    void BlockComment();
    void Question();
    bool DecodedParameter();
    void See(const std::string& word);
    HRESULT Classify();

    char At(std::size_t place) const { return place < m_source.size() ? m_source[place] : '\0'; }
    bool IsMarker(std::size_t place) const {
        return std::binary_search(m_markers.begin(), m_markers.end(), place);
    }
    std::size_t SkipBlanks(std::size_t place) const;
    /// Copies what stands before `end`; parameters there would be inside quotes.
    void CopyQuoted(std::size_t end);
    void Fail(std::wstring reason) {
        if (m_failure.empty()) m_failure = std::move(reason);
    }

    COdbcStatement& m_parsed;
    std::string m_source;
    std::vector<std::size_t> m_markers;  ///< where the parameters stand in m_source
    const std::vector<std::wstring>& m_names;
    std::size_t m_place = 0;
    std::size_t m_nextName = 0;
    std::string m_firstWord;
    bool m_callsFunctions = false;
    bool m_readsTables = false;
    bool m_opensWithParenthesis = false;
    bool m_copiesToClient = false;
    std::wstring m_failure;
};

CScan::CScan(const CSqlStatement& statement, COdbcStatement& parsed)
    : m_parsed(parsed), m_names(statement.parameters) {
    for (std::size_t i = 0; i < statement.pieces.size(); ++i) {
        if (i) {
            m_markers.push_back(m_source.size());
            m_source += '?';
        }
        m_source += statement.pieces[i];
    }
}

HRESULT CScan::Run() {
    while (m_place < m_source.size() && m_failure.empty()) Step();
    if (m_failure.empty()) return Classify();
    SetErrorInfo(m_failure);
    return DB_E_ERRORSINCOMMAND;
}

void CScan::Step() {
    const char c = m_source[m_place];
    if (IsWordStart(c)) return Word();
    if (c == '\'') return Quoted(c, false);
    if (c == '"') return Quoted(c, false);
    if (c == '$') return DollarQuote();
    if (c == '-' && At(m_place + 1) == '-') return LineComment();
    if (c == '/' && At(m_place + 1) == '*') return BlockComment();
    if (c == '?') return Question();
    if (c == ';') return Fail(L"A statement holds a \";\" that does not end it.");
    if (c == '\0') return Fail(L"A statement holds a zero character.");
    if (c == '(' && m_firstWord.empty()) m_opensWithParenthesis = true;
    m_parsed.text += c;
    ++m_place;
    // The rest of a number, so that its letters or "$" begin nothing.
    if (c >= '0' && c <= '9') {
        while (IsWordPart(At(m_place))) m_parsed.text += m_source[m_place++];
    }
}

std::size_t CScan::SkipBlanks(std::size_t place) const {
    while (IsBlank(At(place))) ++place;
    return place;
}

void CScan::CopyQuoted(std::size_t end) {
    end = std::min(end, m_source.size());
    const auto marker = std::lower_bound(m_markers.begin(), m_markers.end(), m_place);
    if (marker != m_markers.end() && *marker < end)
        Fail(L"A parameter stands inside a quoted text or a comment.");
    m_parsed.text.append(m_source, m_place, end - m_place);
    m_place = end;
}

void CScan::Quoted(char quote, bool backslashes) {
    std::size_t end = m_place + 1;
    while (end < m_source.size() && m_source[end] != quote)
        end += backslashes && m_source[end] == '\\' ? 2 : 1;
    CopyQuoted(end + 1);
}

void CScan::DollarQuote() {
    std::size_t end = m_place + 1;
    while (IsWordPart(At(end)) && At(end) != '$') ++end;
    if (At(end) != '$') return CopyQuoted(m_place + 1);
    const std::string_view tag = std::string_view(m_source).substr(m_place, end + 1 - m_place);
    const std::size_t close = m_source.find(tag, end + 1);
    CopyQuoted(close == std::string::npos ? close : close + tag.size());
}

void CScan::LineComment() {
    CopyQuoted(m_source.find('\n', m_place));
}

void CScan::BlockComment() {
    std::size_t end = m_place + 2;
    for (int depth = 1; depth > 0 && end < m_source.size(); ++end) {
        if (m_source.compare(end, 2, "/*") == 0)
            ++depth, ++end;
        else if (m_source.compare(end, 2, "*/") == 0)
            --depth, ++end;
    }
    CopyQuoted(end);
}

void CScan::Question() {
    if (!IsMarker(m_place)) {
        return Fail(
            L"The operators with a question mark cannot be written; use the functions behind them, such as "
            L"jsonb_exists.");
    }
    m_parsed.parameters.push_back({m_names[m_nextName++], false});
    m_parsed.text += '?';
    ++m_place;
}

void CScan::Word() {
    const std::size_t start = m_place;
    std::size_t end = start;
    std::string word;
    while (IsWordPart(At(end))) {
        const char c = m_source[end++];
        word += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    if (word == "e" && At(end) == '\'') {
        m_parsed.text += m_source[m_place++];
        return Quoted('\'', true);
    }
    if (word == kDecode && DecodedParameter()) return;
    const bool isCall = At(SkipBlanks(end)) == '(';
    if (isCall && (word == kDecode || IsOneOf(word, kFunctions))) m_callsFunctions = true;
    See(word);
    m_parsed.text.append(m_source, start, end - start);
    m_place = end;
}

bool CScan::DecodedParameter() {
    const std::size_t open = SkipBlanks(m_place + kDecode.size());
    if (At(open) != '(') return false;
    const std::size_t marker = SkipBlanks(open + 1);
    const std::size_t close = SkipBlanks(marker + 1);
    if (!IsMarker(marker) || At(close) != ')') return false;
    m_parsed.parameters.push_back({m_names[m_nextName++], true});
    m_parsed.text += '?';
    m_place = close + 1;
    return true;
}

void CScan::See(const std::string& word) {
    if (m_firstWord.empty()) m_firstWord = word;
    if (word == "from" || word == "table" || word == "into") m_readsTables = true;
    if (word == "returning") m_parsed.returnsRows = true;
    if (m_firstWord == "copy" && (word == "stdin" || word == "stdout")) m_copiesToClient = true;
}

HRESULT CScan::Classify() {
    const auto refuse = [](const wchar_t* reason) {
        SetErrorInfo(reason);
        return DB_E_ERRORSINCOMMAND;
    };
    if (IsOneOf(m_firstWord, kTransactionWords)) {
        return refuse(
            L"A command cannot begin or end transactions, nor prepare statements; its statements run in "
            L"one transaction.");
    }
    if (m_copiesToClient) return refuse(L"A command cannot copy from or to the client.");
    static constexpr std::array kQueries{"select"sv, "values"sv, "table"sv, "with"sv};
    static constexpr std::array kChanges{"insert"sv, "update"sv, "delete"sv, "merge"sv};
    using Kind = COdbcStatement::Kind;
    if (m_callsFunctions) {
        const bool plain = m_firstWord == "select" || m_firstWord == "values";
        if (!plain || m_readsTables) {
            return refuse(
                L"http_provenance, http_header, script_library, script_resource and script_action can be "
                L"called only in a statement of their own, which reads no table; http_decode elsewhere "
                L"only with a parameter as its argument.");
        }
        m_parsed.kind = Kind::Functions;
    } else if (IsOneOf(m_firstWord, kQueries) || m_opensWithParenthesis) {
        m_parsed.kind = Kind::Query;
        m_parsed.startsWith = m_firstWord == "with";
    } else {
        m_parsed.kind = IsOneOf(m_firstWord, kChanges) ? Kind::Change : Kind::Other;
    }
    return S_OK;
}

}  // namespace

HRESULT ParseOdbcStatement(const CSqlStatement& statement, COdbcStatement& parsed) {
    parsed = {};
    return CScan(statement, parsed).Run();
}

}  // namespace quorbel
