#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorbel {

/// Words that stand one behind the other, as FTS5 writes them.
struct CPhrase {
    std::string expression;  ///< quoted; empty when the text has no word
    std::size_t words = 0;
};

/// The phrase of a text's words as the index has them. With `isPrefix` the last one is the beginning of a
/// word.
CPhrase PhraseOf(std::wstring_view text, bool isPrefix);

/// Takes the "*" and blanks at a text's end; true when it had a "*".
bool TakePrefixMark(std::wstring_view& text) noexcept;

}  // namespace quorbel
