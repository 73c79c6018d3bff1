#include "components/search/query/CommandLexer.h"

#include <algorithm>

namespace quorbel {

namespace {

bool IsDigit(wchar_t character) noexcept {
    return character >= L'0' && character <= L'9';
}
bool IsNameStart(wchar_t character) noexcept {
    return (character >= L'A' && character <= L'Z') || (character >= L'a' && character <= L'z') ||
           character == L'_';
}
bool IsNamePart(wchar_t character) noexcept {
    return IsNameStart(character) || IsDigit(character) || character == L'.';
}
bool IsBlank(wchar_t character) noexcept {
    return character == L' ' || (character >= L'\t' && character <= L'\r');
}

}  // namespace

void CCommandLexer::Next() {
    while (m_at < m_text.size() && IsBlank(m_text[m_at])) ++m_at;
    m_token = {};
    m_token.begin = m_at;
    const auto takeWhile = [&](auto&& isPart) {
        std::size_t end = m_at + 1;
        while (end < m_text.size() && isPart(m_text[end])) ++end;
        m_token.text = m_text.substr(m_at, end - m_at);
        m_at = end;
    };
    if (m_at == m_text.size()) {
        m_token.kind = CToken::Kind::End;
    } else if (const wchar_t first = m_text[m_at]; IsNameStart(first)) {
        m_token.kind = CToken::Kind::Name;
        takeWhile(IsNamePart);
    } else if (first == L'"' || first == L'\'') {
        m_token.kind = first == L'"' ? CToken::Kind::QuotedName : CToken::Kind::Text;
        TakeQuoted(first);
    } else if (IsDigit(first) ||
               ((first == L'-' || first == L'+') && m_at + 1 < m_text.size() && IsDigit(m_text[m_at + 1]))) {
        m_token.kind = CToken::Kind::Number;
        // What follows the digits without a blank belongs to it, so that it is seen to be no number.
        takeWhile(IsNamePart);
    } else {
        TakeSymbol();
    }
}

void CCommandLexer::TakeQuoted(wchar_t quote) {
    for (++m_at; m_at < m_text.size(); ++m_at) {
        if (m_text[m_at] == quote) {
            const bool isDoubled = m_at + 1 < m_text.size() && m_text[m_at + 1] == quote;
            ++m_at;
            if (!isDoubled) return;
            m_token.text += quote;
            continue;
        }
        m_token.text += m_text[m_at];
    }
    m_token.isComplete = false;
}

void CCommandLexer::TakeSymbol() {
    constexpr std::wstring_view kPairs[] = {L"<>", L"!=", L"<=", L">="};
    constexpr std::wstring_view kSingles = L"=<>(),*";
    const std::wstring_view pair = m_text.substr(m_at, 2);
    const bool isPair = std::ranges::find(kPairs, pair) != std::end(kPairs);
    const bool isSingle = kSingles.find(m_text[m_at]) != std::wstring_view::npos;
    m_token.kind = isPair || isSingle ? CToken::Kind::Symbol : CToken::Kind::Unknown;
    m_token.text = m_text.substr(m_at, isPair ? 2 : 1);
    m_at += m_token.text.size();
}

std::size_t CCommandLexer::PositionIn(const CToken& token, std::size_t index) const noexcept {
    std::size_t at = token.begin + 1;
    for (; index > 0 && at < m_text.size(); --index) at += m_text[at] == m_text[token.begin] ? 2 : 1;
    return at + 1;
}

}  // namespace quorbel
