#include "components/search/query/LikePattern.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

/// The characters of the pattern's piece that stands for one character.
std::size_t PieceLength(std::wstring_view pattern) noexcept {
    if (pattern.front() != L'[') return 1;
    // A "]" right behind the bracket belongs to the set.
    const std::size_t first = pattern.substr(1, 1) == L"^" ? 3 : 2;
    const std::size_t end = pattern.find(L']', first);
    return end == std::wstring_view::npos ? pattern.size() : end + 1;
}

bool IsInSet(wchar_t character, std::wstring_view set) noexcept {
    for (std::size_t at = 0; at < set.size(); ++at) {
        const wchar_t from = FoldCase(set[at]);
        const bool isRange = at + 2 < set.size() && set[at + 1] == L'-';
        const wchar_t to = isRange ? FoldCase(set[at + 2]) : from;
        if (character >= from && character <= to) return true;
        if (isRange) at += 2;
    }
    return false;
}

bool Matches(wchar_t character, std::wstring_view piece) noexcept {
    if (piece.size() == 1) return piece == L"_" || FoldCase(character) == FoldCase(piece.front());
    const bool isNegated = piece[1] == L'^';
    const std::size_t first = isNegated ? 2 : 1;
    return IsInSet(FoldCase(character), piece.substr(first, piece.size() - first - 1)) != isNegated;
}

}  // namespace

bool IsLikePattern(std::wstring_view pattern) noexcept {
    while (!pattern.empty()) {
        const std::size_t length = PieceLength(pattern);
        if (pattern.front() == L'[' && (length < 3 || pattern[length - 1] != L']')) return false;
        pattern.remove_prefix(length);
    }
    return true;
}

bool IsLike(std::wstring_view text, std::wstring_view pattern) noexcept {
    // Where to go on when what follows the last "%" does not match here.
    std::wstring_view retryPattern;
    std::wstring_view retryText;
    bool hasRetry = false;
    for (;;) {
        if (!pattern.empty() && pattern.front() == L'%') {
            pattern.remove_prefix(1);
            retryPattern = pattern;
            retryText = text;
            hasRetry = true;
            continue;
        }
        if (pattern.empty() && text.empty()) return true;
        const std::size_t length = pattern.empty() ? 0 : PieceLength(pattern);
        if (length != 0 && !text.empty() && Matches(text.front(), pattern.substr(0, length))) {
            pattern.remove_prefix(length);
            text.remove_prefix(1);
            continue;
        }
        if (!hasRetry || retryText.empty()) return false;
        retryText.remove_prefix(1);
        text = retryText;
        pattern = retryPattern;
    }
}

}  // namespace quorbel
