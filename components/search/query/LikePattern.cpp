#include "components/search/query/LikePattern.h"

#include <optional>

#include "platform/Text.h"

namespace quorbel {

namespace {

/// The length of the set that a pattern begins with; none when it is not closed.
std::optional<std::size_t> SetLength(std::wstring_view pattern) noexcept {
    // A "]" right behind the bracket belongs to the set.
    const std::size_t first = pattern.substr(1, 1) == L"^" ? 3 : 2;
    const std::size_t end = pattern.find(L']', first);
    return end == std::wstring_view::npos ? std::nullopt : std::optional(end + 1);
}

/// The characters of the pattern's piece that stands for one character.
std::size_t PieceLength(std::wstring_view pattern) noexcept {
    return pattern.front() == L'[' ? SetLength(pattern).value_or(1) : 1;
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
        if (pattern.front() == L'[' && !SetLength(pattern)) return false;
        pattern.remove_prefix(PieceLength(pattern));
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
