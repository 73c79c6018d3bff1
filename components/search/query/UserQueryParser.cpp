#include "components/search/query/UserQueryParser.h"

#include "components/search/query/Phrase.h"
#include "components/search/query/SearchBounds.h"
#include "platform/Error.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using Condition = CUserCondition;
using Bounds = CUserQueryBounds;

bool IsBlank(wchar_t character) noexcept {
    return character <= L' ' || character == 0xA0 || character == 0x3000;
}
bool IsQuote(wchar_t character) noexcept {
    return character == L'"' || (character >= 0x201C && character <= 0x201E);
}
/// What ends a word without a blank.
bool IsBorder(wchar_t character) noexcept {
    return IsBlank(character) || IsQuote(character) || character == L'(' || character == L')';
}
bool IsOrder(wchar_t character) noexcept {
    return character == L'<' || character == L'>' || character == L'=';
}

std::optional<Condition> Join(Condition::Kind kind, std::vector<Condition> parts) {
    if (parts.empty()) return std::nullopt;
    if (parts.size() == 1) return std::move(parts.front());
    return Condition{kind, {}, {}, std::move(parts)};
}

bool IsEverything(const Condition& condition) noexcept {
    return condition.kind == Condition::Kind::Everything;
}

}  // namespace

CUserQueryParser::CResult CUserQueryParser::Parse(std::wstring_view query, SearchQuerySyntax syntax,
                                                  const std::wstring& columns) {
    if (query.size() > Bounds::kCharacters) return {{}, L"The query is too long."};
    while (!query.empty() && IsBlank(query.front())) query.remove_prefix(1);
    while (!query.empty() && IsBlank(query.back())) query.remove_suffix(1);
    if (query.empty() || query == L"*") return {std::wstring(kEveryDocument), {}};
    CUserQueryParser parser(query, syntax, columns);
    Part part;
    if (syntax != SearchQuerySyntax::None) {
        parser.Next();
        part = parser.Any(nullptr);
    }
    // Nothing but operators: they are meant as words.
    if (!part && parser.m_problem.empty()) part = parser.EveryWord();
    if (!parser.m_problem.empty()) return {{}, parser.m_problem};
    return {part ? CommandText(*part) : std::wstring(kNoDocumentMatches), {}};
}

CUserQueryParser::Part CUserQueryParser::EveryWord() {
    std::vector<Condition> parts;
    for (std::size_t at = 0; at < m_query.size() && m_problem.empty();) {
        std::size_t end = at;
        while (end < m_query.size() && !IsBlank(m_query[end])) ++end;
        if (auto part = Words(m_query.substr(at, end - at), false, m_columns)) parts.push_back(*part);
        at = end + 1;
    }
    return Join(Condition::Kind::All, std::move(parts));
}

CUserQueryParser::Part CUserQueryParser::Any(const CUserProperty* property) {
    std::vector<Condition> parts;
    for (;;) {
        if (auto part = All(property)) parts.push_back(std::move(*part));
        if (m_term.kind != Kind::Or || !m_problem.empty()) break;
        Next();
    }
    return Join(Condition::Kind::Any, std::move(parts));
}

CUserQueryParser::Part CUserQueryParser::All(const CUserProperty* property) {
    std::vector<Condition> parts;
    // A parenthesis that closes nothing is passed over.
    const bool isGrouped = m_nesting != 0;
    while (m_term.kind != Kind::End && m_term.kind != Kind::Or &&
           (m_term.kind != Kind::Close || !isGrouped)) {
        if (m_term.kind == Kind::And || m_term.kind == Kind::Close) {
            Next();
        } else if (auto part = Negatable(property)) {
            parts.push_back(std::move(*part));
        }
        if (!m_problem.empty()) return std::nullopt;
    }
    if (parts.size() > 1) {
        std::erase_if(parts, IsEverything);
        if (parts.empty()) parts.emplace_back();
    }
    return Join(Condition::Kind::All, std::move(parts));
}

CUserQueryParser::Part CUserQueryParser::Negatable(const CUserProperty* property) {
    bool isNot = false;
    while (m_term.kind == Kind::Not) {
        isNot = !isNot;
        Next();
    }
    auto part = Operand(property);
    if (!part || !isNot) return part;
    std::vector<Condition> inner;
    inner.push_back(std::move(*part));
    return Condition{Condition::Kind::Not, {}, {}, std::move(inner)};
}

CUserQueryParser::Part CUserQueryParser::Operand(const CUserProperty* property) {
    switch (m_term.kind) {
        case Kind::Open: return Group(property);
        case Kind::Property: return ValueOf();
        case Kind::Word:
        case Kind::Phrase: {
            auto part = Leaf(m_term, property);
            Next();
            return part;
        }
        case Kind::End:
        case Kind::And:
        case Kind::Or:
        case Kind::Not:
        case Kind::Close: break;
    }
    return std::nullopt;  // an operator without its word counts for nothing
}

CUserQueryParser::Part CUserQueryParser::Group(const CUserProperty* property) {
    if (m_nesting == Bounds::kNesting) {
        Refuse(L"The query's parentheses are nested too deeply.");
        return std::nullopt;
    }
    ++m_nesting;
    Next();
    auto part = Any(property);
    --m_nesting;
    if (m_term.kind == Kind::Close) Next();
    return part;
}

CUserQueryParser::Part CUserQueryParser::ValueOf() {
    const CUserProperty& property = *m_term.property;
    const std::size_t begin = m_begin;
    const std::size_t colon = m_at;
    while (m_at < m_query.size() && IsBlank(m_query[m_at])) ++m_at;
    if (m_at < m_query.size() && m_query[m_at] == L'(') {
        Next();
        return Group(&property);
    }
    const CTerm value = TakeValue();
    Part part;
    if (value.kind != Kind::End) part = Leaf(value, &property);
    const bool isBare = value.kind == Kind::Word && property.type != CUserProperty::Type::Words;
    if (value.kind == Kind::End || (!part && isBare)) {
        // It was no property after all.
        if (value.kind == Kind::End) m_at = colon;
        part = Words(m_query.substr(begin, m_at - begin), false, m_columns);
    }
    Next();
    return part;
}

void CUserQueryParser::Next() {
    m_term = {};
    do {
        while (m_at < m_query.size() && IsBlank(m_query[m_at])) ++m_at;
        m_begin = m_at;
        if (m_at == m_query.size() || !m_problem.empty()) return;
    } while (m_query[m_at] == L'-' && !TakeNot());
    if (m_term.kind == Kind::Not) return;
    const wchar_t first = m_query[m_at];
    if (first == L'(' || first == L')') {
        m_term.kind = first == L'(' ? Kind::Open : Kind::Close;
        ++m_at;
    } else if (IsQuote(first)) {
        TakePhrase();
    } else if (std::size_t end = 0; const CUserProperty* const property = PropertyHere(end)) {
        m_term = {Kind::Property, {}, false, property};
        m_at = end;
    } else {
        TakeWord();
        m_term.kind = OperatorOf(m_query.substr(m_begin, m_at - m_begin));
    }
}

bool CUserQueryParser::TakeNot() {
    while (m_at < m_query.size() && m_query[m_at] == L'-') ++m_at;
    const bool hasMore = m_at < m_query.size() && !IsBlank(m_query[m_at]) && m_query[m_at] != L')';
    if (hasMore) m_term.kind = Kind::Not;
    return hasMore;
}

void CUserQueryParser::TakePhrase() {
    const std::size_t first = ++m_at;
    while (m_at < m_query.size() && !IsQuote(m_query[m_at])) ++m_at;
    m_term = {Kind::Phrase, m_query.substr(first, m_at - first)};
    m_term.isPrefix = TakePrefixMark(m_term.text);
    if (m_at < m_query.size()) ++m_at;
    if (m_at < m_query.size() && m_query[m_at] == L'*') {
        m_term.isPrefix = true;
        ++m_at;
    }
}

void CUserQueryParser::TakeWord() {
    const std::size_t first = m_at;
    while (m_at < m_query.size() && !IsBorder(m_query[m_at])) ++m_at;
    m_term = {Kind::Word, m_query.substr(first, m_at - first)};
    m_term.isPrefix = TakePrefixMark(m_term.text);
}

CUserQueryParser::CTerm CUserQueryParser::TakeValue() {
    m_term = {};
    if (m_at == m_query.size() || m_query[m_at] == L')') return m_term;
    if (IsQuote(m_query[m_at])) {
        TakePhrase();
        return m_term;
    }
    const std::size_t first = m_at;
    while (m_at < m_query.size() && IsOrder(m_query[m_at])) ++m_at;
    // "size: > 1MB"
    if (m_at != first) {
        while (m_at < m_query.size() && IsBlank(m_query[m_at])) ++m_at;
    }
    TakeWord();
    m_term.text = m_query.substr(first, m_at - first);
    m_term.isPrefix = TakePrefixMark(m_term.text);
    return m_term;
}

const CUserProperty* CUserQueryParser::PropertyHere(std::size_t& end) const {
    end = m_at;
    while (end < m_query.size() && !IsBorder(m_query[end]) && m_query[end] != L':' && !IsOrder(m_query[end]))
        ++end;
    if (end == m_query.size()) return nullptr;
    const auto* const property = FindUserProperty(m_query.substr(m_at, end - m_at), m_syntax);
    if (!property) return nullptr;
    if (m_query[end] == L':') {
        ++end;
        return property;
    }
    // "size>1MB"
    const bool isOrdered =
        property->type == CUserProperty::Type::Size || property->type == CUserProperty::Type::Date;
    return isOrdered && IsOrder(m_query[end]) ? property : nullptr;
}

CUserQueryParser::Kind CUserQueryParser::OperatorOf(std::wstring_view word) const {
    constexpr std::pair<std::wstring_view, Kind> kOperators[] = {
        {L"AND", Kind::And}, {L"OR", Kind::Or}, {L"NOT", Kind::Not}};
    for (const auto& [name, kind] : kOperators) {
        if (m_syntax == SearchQuerySyntax::Natural ? EqualNoCase(word, name) : word == name) return kind;
    }
    return Kind::Word;
}

CUserQueryParser::Part CUserQueryParser::Leaf(const CTerm& term, const CUserProperty* property) {
    if (!property || property->type == CUserProperty::Type::Words) {
        const bool isEverything = term.isPrefix && term.text.empty() && term.kind == Kind::Word;
        if (!isEverything) {
            return Words(term.text, term.isPrefix, property ? std::wstring(property->column) : m_columns);
        }
        if (!property || !property->mayBeMissing) return Condition();
        return Condition{Condition::Kind::Property, {}, std::wstring(property->column) + L" IS NOT NULL", {}};
    }
    if (++m_terms > Bounds::kTerms) Refuse(L"The query has too many words.");
    auto condition = PropertyCondition(*property, term.text, term.isPrefix);
    if (!condition) return std::nullopt;
    return Condition{Condition::Kind::Property, {}, std::move(*condition), {}};
}

CUserQueryParser::Part CUserQueryParser::Words(std::wstring_view text, bool isPrefix,
                                               const std::wstring& columns) {
    Ignore(TakePrefixMark(text));
    const CPhrase phrase = PhraseOf(text, isPrefix);
    if (phrase.words == 0) return std::nullopt;
    m_words += phrase.words;
    if (++m_terms > Bounds::kTerms || m_words > Bounds::kWords) Refuse(L"The query has too many words.");
    std::wstring quoted = L"\"";
    for (const wchar_t character : text) quoted += IsQuote(character) ? L' ' : character;
    return Condition{Condition::Kind::Words, columns, quoted + (isPrefix ? L"*\"" : L"\""), {}};
}

void CUserQueryParser::Refuse(std::wstring problem) {
    if (m_problem.empty()) m_problem = std::move(problem);
}

}  // namespace quorbel
