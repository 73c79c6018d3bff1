#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "components/search/query/CommandLexer.h"
#include "components/search/query/SearchBounds.h"
#include "components/search/query/SearchCommand.h"
#include "components/search/query/WordsParser.h"

namespace quorbel {

/// Reads conditions from the tokens of a command. After a failure nothing more is read.
class CConditionParser {
 public:
    explicit CConditionParser(std::wstring_view text) : m_lexer(text) {}

    /// Each returns nothing, or false, after a failure.
    /// @{
    std::optional<CCondition> Condition();
    const CSearchProperty* Property();
    bool Fail(std::wstring what, std::size_t position);
    /// What is at hand is something else.
    bool FailHere(std::wstring_view expected);
    /// Nothing follows any more.
    bool AtEnd();
    /// @}
    const std::optional<CSyntaxError>& Error() const noexcept { return m_error; }

    const CToken& Current() const noexcept { return m_lexer.Current(); }
    void Next() { m_lexer.Next(); }
    /// Whether the token is this keyword or symbol; the second also takes it.
    /// @{
    bool Is(std::wstring_view word) const noexcept;
    bool TakeIf(std::wstring_view word);
    /// @}
    /// The same, but it is a failure when it is another one.
    bool Expect(std::wstring_view word);

 private:
    using Result = std::optional<CCondition>;

    Result AllOf();
    Result Negation();
    Result Operand();
    Result Nested(bool isNot);
    Result Words(bool isFreeText);
    bool WordColumns(std::string& columns);
    bool WordColumn(std::string& columns);
    Result Folder(CInFolder::Depth depth);
    Result Predicate();
    Result Comparison(const CSearchProperty& property, CComparison::Operator comparison);
    Result In(const CSearchProperty& property);
    Result Like(const CSearchProperty& property);
    Result IsMissing(const CSearchProperty& property);
    /// A text in single quotes.
    std::optional<CToken> TextToken(std::wstring_view expected);
    std::optional<CComparison::Operator> TakeOperator();
    bool Spend(const CToken& on);

    CCommandLexer m_lexer;
    CWordsParser::CBudget m_budget{CSearchBounds::kNesting, CSearchBounds::kConditions, CSearchBounds::kWords,
                                   CSearchBounds::kBeginnings};
    std::optional<CSyntaxError> m_error;
};

}  // namespace quorbel
