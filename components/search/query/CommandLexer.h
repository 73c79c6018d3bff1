#pragma once

#include <string>
#include <string_view>

namespace quorbel {

/// A piece of a command.
struct CToken {
    enum class Kind {
        End,
        Name,        ///< letters, digits, "_" and "."
        QuotedName,  ///< in double quotes
        Text,        ///< in single quotes, a quote in it doubled
        Number,      ///< decimal digits, perhaps with a sign
        Symbol,      ///< = <> != < <= > >= ( ) , *
        Unknown      ///< what begins no token
    };
    Kind kind = Kind::End;
    std::size_t begin = 0;   ///< its first character, counted from 0
    std::wstring text;       ///< without quotes
    bool isComplete = true;  ///< false for quotes that are not closed
};

/// Cuts a command into tokens. One thread at a time.
class CCommandLexer {
 public:
    explicit CCommandLexer(std::wstring_view text) : m_text(text) { Next(); }

    const CToken& Current() const noexcept { return m_token; }
    void Next();
    /// Where in the command a character of a Text token stands, counted from 1.
    std::size_t PositionIn(const CToken& token, std::size_t index) const noexcept;

 private:
    void TakeQuoted(wchar_t quote);
    void TakeSymbol();

    const std::wstring_view m_text;
    std::size_t m_at = 0;
    CToken m_token;
};

}  // namespace quorbel
