#include "platform/folders/WildcardPattern.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

std::size_t Stars(std::wstring_view segment) noexcept {
    std::size_t stars = 0;
    for (std::size_t i = 0; i < segment.size(); ++i) {
        if (segment[i] == L'*' && (i == 0 || segment[i - 1] != L'*')) ++stars;
    }
    return stars;
}

}  // namespace

CWildcardPattern::CWildcardPattern(std::wstring_view segment, std::wstring_view kind) {
    const bool hasWildcards = Stars(segment) <= kMaximumStars;
    m_prefix = ToUtf8(hasWildcards ? segment.substr(0, segment.find_first_of(L"*?")) : segment);
    m_steps.reserve(segment.size() + kind.size() + 1);
    std::size_t stars = 0;
    for (wchar_t character : segment) {
        auto accepts = Accepts::Same;
        if (hasWildcards && character == L'*') accepts = Accepts::AnyText;
        if (hasWildcards && character == L'?') accepts = Accepts::AnyOne;
        if (accepts == Accepts::AnyText) {
            ++stars;
            if (!m_steps.empty() && m_steps.back().accepts == Accepts::AnyText) continue;  // a run is one
        }
        m_steps.push_back({accepts, character});
    }
    m_leastBytes = ToUtf8(segment).size() - stars + kind.size();
    if (kind.empty()) return;
    for (wchar_t character : kind) m_steps.push_back({Accepts::SameNoCase, FoldCase(character)});
    m_steps.push_back({Accepts::AnyText, 0});
}

bool CWildcardPattern::Takes(const CStep& step, wchar_t character) noexcept {
    switch (step.accepts) {
        case Accepts::Same: return step.character == character;
        case Accepts::SameNoCase: return step.character == FoldCase(character);
        case Accepts::AnyOne: return true;
        case Accepts::AnyText: return false;
    }
    return false;
}

bool CWildcardPattern::Matches(std::wstring_view name) const noexcept {
    constexpr auto kNone = static_cast<std::size_t>(-1);
    std::size_t step = 0;
    std::size_t at = 0;
    // Only the last "*" passed ever needs to take more: what stands before it has already found its first
    // place.
    std::size_t lastAnyText = kNone;
    std::size_t retryAt = 0;
    while (at < name.size()) {
        if (step < m_steps.size() && m_steps[step].accepts == Accepts::AnyText) {
            lastAnyText = step++;
            retryAt = at;
        } else if (step < m_steps.size() && Takes(m_steps[step], name[at])) {
            ++step;
            ++at;
        } else if (lastAnyText != kNone) {
            step = lastAnyText + 1;
            at = ++retryAt;
        } else {
            return false;
        }
    }
    while (step < m_steps.size() && m_steps[step].accepts == Accepts::AnyText) ++step;
    return step == m_steps.size();
}

}  // namespace quorbel
