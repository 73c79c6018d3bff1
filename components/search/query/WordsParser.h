#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "components/search/query/SearchCommand.h"

namespace quorbel {

/// Reads the texts of CONTAINS and FREETEXT. One thread at a time.
class CWordsParser {
 public:
    /// How much of a command's bounds is left; the parser takes its share.
    struct CBudget {
        std::size_t nesting;
        std::size_t conditions;
        std::size_t words;
        std::size_t beginnings;
    };
    using Result = std::variant<CCondition, CSyntaxError>;

    /// Looks in these columns of the full-text table, in all when there are none. Positions of errors are
    /// those in the text, counted from 0.
    CWordsParser(std::wstring_view text, std::string columns, CBudget& budget)
        : m_text(text), m_columns(std::move(columns)), m_budget(budget) {}

    /// Words, "phrases", beginnings* and "of phrases*", AND, OR, NOT, AND NOT, NEAR and parentheses; of what
    /// stands side by side all must be found. A term without words counts for nothing; a text of nothing but
    /// such terms matches nothing.
    Result Contains();
    /// Any of the texts that are separated by blanks.
    Result FreeText();

 private:
    enum class Kind { End, Term, And, Or, Not, Near, Open, Close };
    using Part = std::optional<CCondition>;  // nothing when it has no words
    struct CTerm {
        Kind kind = Kind::End;
        std::size_t begin = 0;
        std::wstring_view text;
        bool isPrefix = false;
    };

    void Next();
    void TakeQuoted();
    void TakeWord();
    /// Each returns false after a failure.
    /// @{
    bool Or(Part& part);
    bool And(Part& part);
    bool Operand(Part& part);
    bool Group(Part& part);
    bool Near(Part& part);
    bool Take(const CTerm& term, std::string& phrase);
    bool Fail(std::wstring what, std::size_t at);
    /// @}

    const std::wstring_view m_text;
    const std::string m_columns;
    CBudget& m_budget;
    std::size_t m_at = 0;
    CTerm m_term;
    std::optional<CSyntaxError> m_error;
};

}  // namespace quorbel
