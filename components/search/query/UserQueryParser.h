#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "components/search/SearchManager.h"
#include "components/search/query/UserProperty.h"
#include "components/search/query/UserQuery.h"

namespace quorbel {

/// Reads what a user typed, as docs/search-queries.md describes it. Nothing is an error but what is beyond
/// the bounds: what cannot be read as meant is read as words.
class CUserQueryParser {
 public:
    /// The condition as a command has it, or why there is none: an English sentence.
    struct CResult {
        std::wstring condition;
        std::wstring problem;
    };

    /// Words without a property are looked for in these columns, separated by ", "; in all when there are
    /// none.
    static CResult Parse(std::wstring_view query, SearchQuerySyntax syntax, const std::wstring& columns);

 private:
    enum class Kind { End, Word, Phrase, And, Or, Not, Open, Close, Property };
    using Part = std::optional<CUserCondition>;  // nothing when it has no words
    struct CTerm {
        Kind kind = Kind::End;
        std::wstring_view text = {};  // without quotes and "*"
        bool isPrefix = false;
        const CUserProperty* property = nullptr;
    };

    CUserQueryParser(std::wstring_view query, SearchQuerySyntax syntax, const std::wstring& columns)
        : m_query(query), m_syntax(syntax), m_columns(columns) {}

    Part Any(const CUserProperty* property);
    Part All(const CUserProperty* property);
    Part Negatable(const CUserProperty* property);
    Part Operand(const CUserProperty* property);
    Part Group(const CUserProperty* property);
    Part ValueOf();
    Part EveryWord();

    void Next();
    bool TakeNot();
    void TakePhrase();
    void TakeWord();
    CTerm TakeValue();
    const CUserProperty* PropertyHere(std::size_t& end) const;
    Kind OperatorOf(std::wstring_view word) const;
    Part Leaf(const CTerm& term, const CUserProperty* property);
    Part Words(std::wstring_view text, bool isPrefix, const std::wstring& columns);
    void Refuse(std::wstring problem);

    const std::wstring_view m_query;
    const SearchQuerySyntax m_syntax;
    const std::wstring& m_columns;
    std::size_t m_at = 0;
    std::size_t m_begin = 0;  // of the term
    CTerm m_term;
    std::size_t m_nesting = 0;
    std::size_t m_terms = 0;
    std::size_t m_words = 0;
    std::wstring m_problem;
};

}  // namespace quorbel
