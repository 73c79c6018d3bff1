#include "components/search/query/ConditionParser.h"

#include "components/search/query/FolderPath.h"
#include "components/search/query/LikePattern.h"
#include "components/search/query/SearchDate.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using Operator = CComparison::Operator;
using Type = CSearchProperty::Type;

CCondition Opposite(CCondition condition) {
    CNot negated;
    negated.part.push_back(std::move(condition));
    return {std::move(negated)};
}

template <class List>
CCondition Join(std::vector<CCondition> parts) {
    if (parts.size() == 1) return std::move(parts.front());
    return {List{std::move(parts)}};
}

std::optional<std::int64_t> WholeNumber(std::wstring_view text) noexcept {
    const bool isNegative = text.starts_with(L'-');
    if (isNegative || text.starts_with(L'+')) text.remove_prefix(1);
    const auto number = TakeDecimal(text);
    if (!number || !text.empty() || *number > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
    const auto value = static_cast<std::int64_t>(*number);
    return isNegative ? -value : value;
}

}  // namespace

bool CConditionParser::Fail(std::wstring what, std::size_t position) {
    if (!m_error) m_error = CSyntaxError{std::move(what), position};
    return false;
}

bool CConditionParser::FailHere(std::wstring_view expected) {
    const CToken& token = Current();
    if (!token.isComplete) return Fail(L"A quotation mark is not closed", token.begin + 1);
    constexpr std::size_t kMostShown = 40;
    const std::wstring shown = token.text.substr(0, kMostShown);
    const std::wstring found =
        token.kind == CToken::Kind::End ? std::wstring(L"the command ends") : L"there is \"" + shown + L"\"";
    return Fail(L"Where " + std::wstring(expected) + L" is expected, " + found, token.begin + 1);
}

bool CConditionParser::AtEnd() {
    return !m_error && (Current().kind == CToken::Kind::End || FailHere(L"the end of the command"));
}

bool CConditionParser::Is(std::wstring_view word) const noexcept {
    const CToken& token = Current();
    const bool isWord = token.kind == CToken::Kind::Name || token.kind == CToken::Kind::Symbol;
    return isWord && EqualNoCase(token.text, word);
}

bool CConditionParser::TakeIf(std::wstring_view word) {
    if (!Is(word)) return false;
    Next();
    return true;
}

bool CConditionParser::Expect(std::wstring_view word) {
    return TakeIf(word) || FailHere(word);
}

bool CConditionParser::Spend(const CToken& on) {
    if (m_budget.conditions == 0) return Fail(L"The command has too many conditions", on.begin + 1);
    --m_budget.conditions;
    return true;
}

std::optional<CCondition> CConditionParser::Condition() {
    std::vector<CCondition> parts;
    do {
        Result part = AllOf();
        if (!part) return part;
        parts.push_back(std::move(*part));
    } while (TakeIf(L"OR"));
    return Join<CAnyOf>(std::move(parts));
}

CConditionParser::Result CConditionParser::AllOf() {
    std::vector<CCondition> parts;
    do {
        Result part = Negation();
        if (!part) return part;
        parts.push_back(std::move(*part));
    } while (TakeIf(L"AND"));
    return Join<CAllOf>(std::move(parts));
}

CConditionParser::Result CConditionParser::Negation() {
    if (Is(L"NOT")) return Nested(true);
    return Operand();
}

CConditionParser::Result CConditionParser::Operand() {
    if (Is(L"(")) return Nested(false);
    if (Current().kind != CToken::Kind::Name) return Predicate();
    if (TakeIf(L"CONTAINS")) return Words(false);
    if (TakeIf(L"FREETEXT")) return Words(true);
    if (TakeIf(L"SCOPE")) return Folder(CInFolder::Depth::Below);
    if (TakeIf(L"DIRECTORY")) return Folder(CInFolder::Depth::Directly);
    return Predicate();
}

CConditionParser::Result CConditionParser::Nested(bool isNot) {
    if (m_budget.nesting == 0) {
        Fail(L"Parentheses and NOTs are nested too deeply", Current().begin + 1);
        return std::nullopt;
    }
    --m_budget.nesting;
    Next();
    const bool isGroup = !isNot || TakeIf(L"(");
    Result inner = isGroup ? Condition() : Negation();
    if (!inner || (isGroup && !Expect(L")"))) return std::nullopt;
    ++m_budget.nesting;
    return isNot ? Opposite(std::move(*inner)) : std::move(*inner);
}

CConditionParser::Result CConditionParser::Words(bool isFreeText) {
    std::string columns;
    if (!Expect(L"(")) return std::nullopt;
    if (Current().kind != CToken::Kind::Text && (!WordColumns(columns) || !Expect(L","))) return std::nullopt;
    const auto text = TextToken(L"a text in single quotes");
    if (!text || !Expect(L")")) return std::nullopt;
    CWordsParser parser(text->text, std::move(columns), m_budget);
    auto parsed = isFreeText ? parser.FreeText() : parser.Contains();
    if (const auto* const error = std::get_if<CSyntaxError>(&parsed)) {
        Fail(error->what, m_lexer.PositionIn(*text, error->position));
        return std::nullopt;
    }
    return std::get<CCondition>(std::move(parsed));
}

bool CConditionParser::WordColumns(std::string& columns) {
    if (TakeIf(L"*")) return true;
    if (!TakeIf(L"(")) return WordColumn(columns);
    if (TakeIf(L"*")) return Expect(L")");
    do {
        if (!WordColumn(columns)) return false;
    } while (TakeIf(L","));
    return Expect(L")");
}

bool CConditionParser::WordColumn(std::string& columns) {
    const CToken token = Current();
    const CSearchProperty* const property = Property();
    if (!property) return false;
    if (property->words.empty()) {
        return Fail(L"\"" + token.text + L"\" has no words to look for", token.begin + 1);
    }
    if ((" " + columns + " ").find(" " + std::string(property->words) + " ") != std::string::npos)
        return true;
    columns += (columns.empty() ? "" : " ") + std::string(property->words);
    return true;
}

CConditionParser::Result CConditionParser::Folder(CInFolder::Depth depth) {
    if (!Expect(L"=")) return std::nullopt;
    const auto text = TextToken(L"a folder in single quotes");
    if (!text || !Spend(*text)) return std::nullopt;
    auto path = SearchFolderPath(text->text);
    if (!path) {
        Fail(L"\"" + text->text + L"\" is no absolute path of a folder", text->begin + 1);
        return std::nullopt;
    }
    return CCondition{CInFolder{std::move(*path), depth}};
}

const CSearchProperty* CConditionParser::Property() {
    const CToken& token = Current();
    const bool isName = token.kind == CToken::Kind::Name || token.kind == CToken::Kind::QuotedName;
    const CSearchProperty* const property = isName ? FindSearchProperty(token.text) : nullptr;
    if (property) {
        Next();
    } else if (isName && token.isComplete) {
        Fail(L"There is no column \"" + token.text + L"\"", token.begin + 1);
    } else {
        FailHere(L"a column");
    }
    return property;
}

CConditionParser::Result CConditionParser::Predicate() {
    const CToken token = Current();
    const CSearchProperty* const property = Property();
    if (!property || !Spend(token)) return std::nullopt;
    if (property->compared.empty()) {
        Fail(L"\"" + token.text + L"\" cannot be compared", token.begin + 1);
        return std::nullopt;
    }
    if (TakeIf(L"IS")) return IsMissing(*property);
    const bool isNot = TakeIf(L"NOT");
    Result result;
    if (TakeIf(L"LIKE")) {
        result = Like(*property);
    } else if (TakeIf(L"IN")) {
        result = In(*property);
    } else if (isNot) {
        FailHere(L"LIKE or IN");
    } else if (const auto comparison = TakeOperator()) {
        result = Comparison(*property, *comparison);
    } else {
        FailHere(L"a comparison");
    }
    return result && isNot ? Opposite(std::move(*result)) : std::move(result);
}

std::optional<Operator> CConditionParser::TakeOperator() {
    constexpr std::pair<std::wstring_view, Operator> kOperators[] = {
        {L"=", Operator::Equal},          {L"<>", Operator::NotEqual},    {L"!=", Operator::NotEqual},
        {L"<", Operator::Less},           {L"<=", Operator::LessOrEqual}, {L">", Operator::Greater},
        {L">=", Operator::GreaterOrEqual}};
    for (const auto& [text, comparison] : kOperators) {
        if (TakeIf(text)) return comparison;
    }
    return std::nullopt;
}

CConditionParser::Result CConditionParser::Comparison(const CSearchProperty& property, Operator comparison) {
    if (property.type == Type::Number) {
        const auto number =
            Current().kind == CToken::Kind::Number ? WholeNumber(Current().text) : std::nullopt;
        if (!number) {
            FailHere(L"a whole number");
            return std::nullopt;
        }
        Next();
        return CCondition{CComparison{&property, comparison, *number}};
    }
    const bool isDate = property.type == Type::Date;
    const auto text = TextToken(isDate ? L"a date in single quotes" : L"a text in single quotes");
    if (!text) return std::nullopt;
    if (!isDate) return CCondition{CComparison{&property, comparison, ToUtf8(text->text)}};
    const auto instant = ParseInstant(text->text);
    if (!instant) {
        Fail(L"\"" + text->text + L"\" is no date", text->begin + 1);
        return std::nullopt;
    }
    return CCondition{CComparison{&property, comparison, *instant}};
}

CConditionParser::Result CConditionParser::In(const CSearchProperty& property) {
    if (!Expect(L"(")) return std::nullopt;
    std::vector<CCondition> parts;
    do {
        Result part = Spend(Current()) ? Comparison(property, Operator::Equal) : std::nullopt;
        if (!part) return part;
        parts.push_back(std::move(*part));
    } while (TakeIf(L","));
    if (!Expect(L")")) return std::nullopt;
    return Join<CAnyOf>(std::move(parts));
}

CConditionParser::Result CConditionParser::Like(const CSearchProperty& property) {
    if (property.type != Type::Text) {
        FailHere(L"a comparison with a " +
                 std::wstring(property.type == Type::Date ? L"date" : L"whole number"));
        return std::nullopt;
    }
    const auto text = TextToken(L"a pattern in single quotes");
    if (!text) return std::nullopt;
    if (text->text.size() > CSearchBounds::kPattern) {
        Fail(L"The pattern is too long", text->begin + 1);
        return std::nullopt;
    }
    if (!IsLikePattern(text->text)) {
        Fail(L"A \"[\" of the pattern is not closed", text->begin + 1);
        return std::nullopt;
    }
    return CCondition{CLikeness{&property, ToUtf8(text->text)}};
}

CConditionParser::Result CConditionParser::IsMissing(const CSearchProperty& property) {
    const bool isNot = TakeIf(L"NOT");
    if (!Expect(L"NULL")) return std::nullopt;
    if (!property.mayBeMissing) return isNot ? CCondition{CEverything()} : CCondition{CNothing()};
    CCondition missing{CMissing{&property}};
    return isNot ? Opposite(std::move(missing)) : std::move(missing);
}

std::optional<CToken> CConditionParser::TextToken(std::wstring_view expected) {
    if (m_error) return std::nullopt;
    if (Current().kind != CToken::Kind::Text || !Current().isComplete) {
        FailHere(expected);
        return std::nullopt;
    }
    CToken token = Current();
    Next();
    return token;
}

}  // namespace quorbel
