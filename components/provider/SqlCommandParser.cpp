#include "components/provider/SqlCommandParser.h"

#include <algorithm>
#include <map>
#include <sqlite3.h>

#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

constexpr wchar_t kByteOrderMark = 0xFEFF;

bool IsBlank(wchar_t character) noexcept {
    return character == L' ' || (character >= L'\t' && character <= L'\r');
}

bool IsDigit(wchar_t character) noexcept {
    return character >= L'0' && character <= L'9';
}

/// Of a parameter's name, and of an identifier in every dialect.
bool IsNameCharacter(wchar_t character) noexcept {
    return (character >= L'a' && character <= L'z') || (character >= L'A' && character <= L'Z') ||
           IsDigit(character) || character == L'_' || character == L'$' || character >= 0x80;
}

std::wstring_view WithoutMark(std::wstring_view text) noexcept {
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(1);
    return text;
}

void NumberParameters(CSqlStatement& statement) {
    std::map<std::wstring_view, std::size_t> numbers;
    statement.numbered = statement.pieces.front();
    for (std::size_t index = 0; index != statement.parameters.size(); ++index) {
        const std::wstring& name = statement.parameters[index];
        const auto [number, isNew] = numbers.emplace(name, numbers.size() + 1);
        if (isNew) statement.names.push_back(name);
        statement.numbered.append("?").append(std::to_string(number->second));
        const std::string& piece = statement.pieces[index + 1];
        // What follows must not lengthen the number.
        if (!piece.empty() && piece.front() >= '0' && piece.front() <= '9') statement.numbered += ' ';
        statement.numbered += piece;
    }
}

}  // namespace

CSqlCommandParser::CSqlCommandParser(SqlDialect dialect, std::wstring_view text)
    : m_dialect(dialect), m_text(WithoutMark(text)) {}

HRESULT CSqlCommandParser::Parse(CSqlCommand& command) {
    while (m_position < m_text.size()) {
        const HRESULT result = TakeToken();
        if (!Succeeded(result)) return result;
    }
    m_position = m_text.size();
    EndStatement();
    command = std::move(m_command);
    return S_OK;
}

HRESULT CSqlCommandParser::TakeToken() {
    const wchar_t character = m_text[m_position];
    if (IsBlank(character)) {
        ++m_position;
        return S_OK;
    }
    if (TakeComment()) return S_OK;
    if (character != L';') {
        BeginStatement();
        return TakeStart();
    }
    if (IsInsideTrigger()) {
        ++m_position;
        return S_OK;
    }
    EndStatement();
    ++m_position;
    return S_OK;
}

HRESULT CSqlCommandParser::TakeStart() {
    const wchar_t character = m_text[m_position];
    if (TakeQuoted()) return S_OK;
    if (character == L'@') return TakeParameter();
    if (character == L'$') return TakeDollar();
    if (IsNameCharacter(character)) {
        TakeWord();
        return S_OK;
    }
    if (character == L'\0') return Refuse(L"A command holds no NUL");
    const bool isParameter =
        character == L'?' || (m_dialect == SqlDialect::Sqlite && (character == L':' || character == L'#'));
    if (isParameter) return Refuse(L"A parameter is written @name or @[any name]");
    ++m_position;
    return S_OK;
}

HRESULT CSqlCommandParser::TakeParameter() {
    const std::size_t sign = m_position++;
    if (At(m_position) == L'@') {
        while (At(m_position) == L'@') ++m_position;
        // What follows is no parameter, but a name or something in quotes.
        while (IsNameCharacter(At(m_position))) ++m_position;
        return S_OK;
    }
    std::wstring name;
    if (At(m_position) == L'[') {
        for (++m_position;; name += m_text[m_position++]) {
            if (m_position >= m_text.size()) {
                m_position = sign;
                return Refuse(L"The bracket of a parameter is not closed");
            }
            if (m_text[m_position] != L']') continue;
            if (At(m_position + 1) != L']') break;
            ++m_position;
        }
        ++m_position;
    } else {
        while (IsNameCharacter(At(m_position))) name += m_text[m_position++];
        if (name.empty()) return S_OK;
    }
    EndPiece(sign);
    m_statement.parameters.push_back(std::move(name));
    return S_OK;
}

HRESULT CSqlCommandParser::TakeDollar() {
    std::size_t end = m_position + 1;
    if (m_dialect == SqlDialect::Standard && !IsDigit(At(end))) {
        while (At(end) != L'$' && IsNameCharacter(At(end))) ++end;
        if (At(end) == L'$') {
            const std::wstring_view tag = m_text.substr(m_position, end + 1 - m_position);
            m_position += tag.size();
            SkipPast(tag);
            return S_OK;
        }
    }
    return Refuse(L"A parameter is written @name or @[any name]");
}

bool CSqlCommandParser::TakeComment() {
    if (LooksAt(L"--")) {
        SkipPast(L"\n");
        return true;
    }
    if (!LooksAt(L"/*")) return false;
    m_position += 2;
    if (m_dialect == SqlDialect::Sqlite) {
        SkipPast(L"*/");
        return true;
    }
    for (std::size_t depth = 1; depth != 0 && m_position < m_text.size();) {
        const bool opens = LooksAt(L"/*");
        const bool closes = LooksAt(L"*/");
        if (opens) ++depth;
        if (closes) --depth;
        m_position += opens || closes ? 2 : 1;
    }
    return true;
}

bool CSqlCommandParser::TakeQuoted() {
    const wchar_t character = m_text[m_position];
    const bool isSqlite = m_dialect == SqlDialect::Sqlite;
    if (character == L'\'' || character == L'"' || (isSqlite && character == L'`')) {
        SkipQuoted(character);
        return true;
    }
    if (!isSqlite || character != L'[') return false;
    SkipPast(L"]");
    return true;
}

void CSqlCommandParser::TakeWord() {
    const std::size_t begin = m_position;
    while (IsNameCharacter(At(m_position))) ++m_position;
    const bool isEscape = m_position == begin + 1 && (m_text[begin] == L'e' || m_text[begin] == L'E') &&
                          At(m_position) == L'\'';
    if (isEscape && m_dialect == SqlDialect::Standard) SkipWithBackslashes();
}

void CSqlCommandParser::SkipPast(std::wstring_view end) {
    const std::size_t found = m_text.find(end, m_position);
    m_position = found == m_text.npos ? m_text.size() : found + end.size();
}

void CSqlCommandParser::SkipQuoted(wchar_t quote) {
    // A doubled quote is the end of one quoted text and the begin of the next.
    ++m_position;
    SkipPast({&quote, 1});
}

void CSqlCommandParser::SkipWithBackslashes() {
    for (++m_position; m_position < m_text.size(); ++m_position) {
        if (m_text[m_position] == L'\\') {
            ++m_position;
        } else if (m_text[m_position] == L'\'') {
            if (At(m_position + 1) != L'\'') break;
            ++m_position;
        }
    }
    m_position = std::min(m_position + 1, m_text.size());
}

void CSqlCommandParser::BeginStatement() {
    if (m_isInStatement) return;
    m_isInStatement = true;
    m_begin = m_piece = m_position;
    m_line += CountLines(m_lineAt, m_position);
    m_lineAt = m_position;
    m_statement.line = m_line;
}

void CSqlCommandParser::EndStatement() {
    if (!m_isInStatement) return;
    EndPiece(m_position);
    NumberParameters(m_statement);
    m_command.statements.push_back(std::exchange(m_statement, {}));
    m_isInStatement = false;
}

bool CSqlCommandParser::IsInsideTrigger() const {
    if (m_dialect != SqlDialect::Sqlite || !m_isInStatement) return false;
    const std::wstring_view statement = m_text.substr(m_begin, m_position + 1 - m_begin);
    // Any other statement ends here; only what begins so is worth a second reading.
    if (!StartsWithNoCase(statement, L"CREATE") && !StartsWithNoCase(statement, L"EXPLAIN")) return false;
    return ::sqlite3_complete(ToUtf8(statement).c_str()) == 0;
}

void CSqlCommandParser::EndPiece(std::size_t end) {
    m_statement.pieces.push_back(ToUtf8(m_text.substr(m_piece, end - m_piece)));
    m_piece = m_position;
}

std::size_t CSqlCommandParser::CountLines(std::size_t from, std::size_t to) const noexcept {
    const std::wstring_view text = m_text.substr(from, to - from);
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), L'\n'));
}

HRESULT CSqlCommandParser::Refuse(std::wstring_view why) const {
    const std::size_t line = m_line + CountLines(m_lineAt, m_position);
    SetErrorInfo(std::wstring(why) + L" (line " + std::to_wstring(line) + L").");
    return DB_E_ERRORSINCOMMAND;
}

}  // namespace quorbel
