#include "components/search/query/WordsParser.h"

#include <algorithm>

#include "components/search/query/Phrase.h"
#include "platform/Error.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

/// Words between the first and the last of those that are near each other.
constexpr std::string_view kNear = ", 50)";

bool IsBlank(wchar_t character) noexcept {
    return character == L' ' || (character >= L'\t' && character <= L'\r') || character == 0x3000;
}

template <class List>
std::optional<CCondition> Join(std::vector<CCondition> parts) {
    if (parts.empty()) return std::nullopt;
    if (parts.size() == 1) return std::move(parts.front());
    return CCondition{List{std::move(parts)}};
}

}  // namespace

CWordsParser::Result CWordsParser::Contains() {
    Next();
    Part part;
    bool isGood = m_term.kind == Kind::End || (!m_error && Or(part));
    if (m_error) return *m_error;
    if (isGood && m_term.kind != Kind::End)
        isGood = Fail(L"There is a \")\" without its \"(\"", m_term.begin);
    if (!isGood) return *m_error;
    return part ? std::move(*part) : CCondition{CNothing()};
}

CWordsParser::Result CWordsParser::FreeText() {
    std::vector<CCondition> parts;
    for (std::size_t at = 0; at < m_text.size();) {
        std::size_t end = at;
        while (end < m_text.size() && !IsBlank(m_text[end])) ++end;
        std::string phrase;
        if (!Take({Kind::Term, at, m_text.substr(at, end - at), false}, phrase)) return *m_error;
        if (!phrase.empty()) parts.push_back({CWordsMatch{m_columns, std::move(phrase)}});
        at = end + 1;
    }
    auto any = Join<CAnyOf>(std::move(parts));
    return any ? std::move(*any) : CCondition{CNothing()};
}

void CWordsParser::Next() {
    while (m_at < m_text.size() && IsBlank(m_text[m_at])) ++m_at;
    m_term = {Kind::End, m_at, {}, false};
    if (m_at == m_text.size()) return;
    switch (m_text[m_at]) {
        case L'"': TakeQuoted(); return;
        case L'(': m_term.kind = Kind::Open; break;
        case L')': m_term.kind = Kind::Close; break;
        case L'&': m_term.kind = Kind::And; break;
        case L'|': m_term.kind = Kind::Or; break;
        default: TakeWord(); return;
    }
    ++m_at;
}

void CWordsParser::TakeQuoted() {
    const std::size_t end = m_text.find(L'"', m_at + 1);
    m_term.kind = Kind::Term;
    if (end == std::wstring_view::npos) {
        Ignore(Fail(L"A quotation mark is not closed", m_at));
        m_at = m_text.size();
        return;
    }
    m_term.text = m_text.substr(m_at + 1, end - m_at - 1);
    m_at = end + 1;
    if (m_at < m_text.size() && m_text[m_at] == L'*') {
        m_term.isPrefix = true;
        ++m_at;
    }
    m_term.isPrefix |= TakePrefixMark(m_term.text);
}

void CWordsParser::TakeWord() {
    std::size_t end = m_at;
    while (end < m_text.size() && !IsBlank(m_text[end]) &&
           std::wstring_view(L"\"()&|").find(m_text[end]) == std::wstring_view::npos)
        ++end;
    m_term.text = m_text.substr(m_at, end - m_at);
    m_at = end;
    if (EqualNoCase(m_term.text, L"AND")) {
        m_term.kind = Kind::And;
    } else if (EqualNoCase(m_term.text, L"OR")) {
        m_term.kind = Kind::Or;
    } else if (EqualNoCase(m_term.text, L"NOT")) {
        m_term.kind = Kind::Not;
    } else if (EqualNoCase(m_term.text, L"NEAR")) {
        m_term.kind = Kind::Near;
    } else {
        m_term.kind = Kind::Term;
        m_term.isPrefix = TakePrefixMark(m_term.text);
    }
}

bool CWordsParser::Or(Part& part) {
    std::vector<CCondition> parts;
    for (;;) {
        Part next;
        if (!And(next)) return false;
        if (next) parts.push_back(std::move(*next));
        if (m_term.kind != Kind::Or) break;
        Next();
        if (m_error) return false;
    }
    part = Join<CAnyOf>(std::move(parts));
    return true;
}

bool CWordsParser::And(Part& part) {
    std::vector<CCondition> parts;
    for (;;) {
        Part next;
        if (!Operand(next)) return false;
        if (next) parts.push_back(std::move(*next));
        if (m_term.kind == Kind::End || m_term.kind == Kind::Or || m_term.kind == Kind::Close) break;
        if (m_term.kind == Kind::And) Next();
        if (m_error) return false;
    }
    part = Join<CAllOf>(std::move(parts));
    return true;
}

bool CWordsParser::Operand(Part& part) {
    switch (m_term.kind) {
        case Kind::Term: return Near(part);
        case Kind::End: return Fail(L"A word is missing at the end of the words", m_term.begin);
        case Kind::And:
        case Kind::Or:
        case Kind::Near:
        case Kind::Close: return Fail(L"A word is missing", m_term.begin);
        case Kind::Not:
        case Kind::Open: break;
    }
    if (m_budget.nesting == 0) return Fail(L"Parentheses and NOTs are nested too deeply", m_term.begin);
    --m_budget.nesting;
    const bool isNot = m_term.kind == Kind::Not;
    if (isNot) Next();
    const bool isGroup = m_term.kind == Kind::Open;
    if (m_error || !(isGroup ? Group(part) : Operand(part))) return false;
    ++m_budget.nesting;
    if (!isNot || !part) return true;
    CNot negated;
    negated.part.push_back(std::move(*part));
    part = CCondition{std::move(negated)};
    return true;
}

bool CWordsParser::Group(Part& part) {
    const std::size_t begin = m_term.begin;
    Next();
    if (m_error || !Or(part)) return false;
    if (m_term.kind != Kind::Close) return Fail(L"A \"(\" is not closed", begin);
    Next();
    return !m_error;
}

bool CWordsParser::Near(Part& part) {
    std::vector<std::string> phrases;
    for (;;) {
        std::string phrase;
        if (!Take(m_term, phrase)) return false;
        if (!phrase.empty()) phrases.push_back(std::move(phrase));
        Next();
        if (m_error) return false;
        if (m_term.kind != Kind::Near) break;
        Next();
        if (m_error) return false;
        if (m_term.kind != Kind::Term) return Fail(L"A word is missing behind NEAR", m_term.begin);
    }
    if (phrases.empty()) return true;
    std::string all = std::move(phrases.front());
    for (std::size_t index = 1; index != phrases.size(); ++index) all += " " + phrases[index];
    if (phrases.size() > 1) all = "NEAR(" + all + std::string(kNear);
    part = CCondition{CWordsMatch{m_columns, std::move(all)}};
    return true;
}

bool CWordsParser::Take(const CTerm& term, std::string& phrase) {
    CPhrase taken = PhraseOf(term.text, term.isPrefix);
    if (m_budget.conditions == 0 || taken.words > m_budget.words) {
        return Fail(L"There are too many words", term.begin);
    }
    if (term.isPrefix && m_budget.beginnings == 0) {
        return Fail(L"There are too many beginnings of words", term.begin);
    }
    if (term.isPrefix) --m_budget.beginnings;
    --m_budget.conditions;
    m_budget.words -= taken.words;
    phrase = std::move(taken.expression);
    return true;
}

bool CWordsParser::Fail(std::wstring what, std::size_t at) {
    if (!m_error) m_error = CSyntaxError{std::move(what), at};
    return false;
}

}  // namespace quorbel
