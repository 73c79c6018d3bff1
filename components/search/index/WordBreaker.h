#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace quorbel {

/// Takes one word: its folded form (valid only during the call) and the bytes of the text that it stands for.
/// False ends the breaking.
using OnWord = std::function<bool(std::string_view folded, std::size_t begin, std::size_t end)>;

/// Breaks UTF-8 text into words (letters, digits and the marks on them), without case and accents (Unicode
/// compatibility decomposition and full case folding, marks dropped). Of scripts that are written without
/// blanks, Chinese, Japanese, Korean, Thai and others, each letter is a word, so that a part of a sentence is
/// found as a phrase. Invalid bytes separate.
void BreakWords(std::string_view text, const OnWord& onWord);

}  // namespace quorbel
