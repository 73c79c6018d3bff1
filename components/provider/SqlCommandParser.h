#pragma once

#include <string_view>

#include "components/provider/SqlCommand.h"
#include "platform/com/Com.h"

namespace quorbel {

/// Takes a command's text apart. Understands as much of the language as it takes to know quotes, comments,
/// parameters and ends of statements from each other; all else is the database's to judge.
class CSqlCommandParser {
 public:
    CSqlCommandParser(SqlDialect dialect, std::wstring_view text);

    /// DB_E_ERRORSINCOMMAND, with a description, for a parameter that is written in a database's own way
    /// (`?`, `:x`, `$x`, `#x`), a bracket that is not closed or a NUL. `command` is then of no use.
    HRESULT Parse(CSqlCommand& command);

 private:
    HRESULT TakeToken();
    HRESULT TakeStart();
    HRESULT TakeParameter();
    HRESULT TakeDollar();
    bool TakeComment();
    bool TakeQuoted();
    void TakeWord();
    void SkipPast(std::wstring_view end);
    void SkipQuoted(wchar_t quote);
    void SkipWithBackslashes();

    void BeginStatement();
    void EndStatement();
    bool IsInsideTrigger() const;
    void EndPiece(std::size_t end);

    wchar_t At(std::size_t position) const noexcept {
        return position < m_text.size() ? m_text[position] : L'\0';
    }
    bool LooksAt(std::wstring_view text) const noexcept {
        return m_text.substr(m_position, text.size()) == text;
    }
    std::size_t CountLines(std::size_t from, std::size_t to) const noexcept;
    HRESULT Refuse(std::wstring_view why) const;

    const SqlDialect m_dialect;
    const std::wstring_view m_text;
    std::size_t m_position = 0;
    std::size_t m_begin = 0;  // of the statement
    std::size_t m_piece = 0;  // where the piece that is read begins
    std::size_t m_line = 1;   // at m_lineAt
    std::size_t m_lineAt = 0;
    bool m_isInStatement = false;
    CSqlStatement m_statement;
    CSqlCommand m_command;
};

}  // namespace quorbel
