#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace quorbel {

/// What is looked for in a text: phrases of words as BreakWords gives them.
struct CSoughtPhrase {
    std::vector<std::string> words;
    bool isPrefix = false;  ///< the last word may go on
};

/// The phrases in double quotes of an FTS5 expression; "*" behind one makes it a prefix.
std::vector<CSoughtPhrase> SoughtPhrases(std::string_view expression);

/// Gives a text piece by piece: empty at its end. A piece lives until the next is asked for.
using TextPieces = std::function<std::string_view()>;

/// How far into a text words are looked for.
inline constexpr std::size_t kSearchedText = 512 << 10;
/// They stand around words that were looked for.
inline constexpr char kMarkBegin = '\x02';
inline constexpr char kMarkEnd = '\x03';

/// The part of a text with most of the phrases, about so many bytes of it: cut between words, "…" where it is
/// cut, blanks and line ends as single blanks. The beginning of the text when none is in it. Throws
/// std::bad_alloc.
std::string Excerpt(const TextPieces& text, const std::vector<CSoughtPhrase>& phrases, std::size_t size);

}  // namespace quorbel
