#pragma once

#include <string_view>

#include "components/search/text/TextExtractor.h"

namespace quorbel {

/// Why a file has no text. Each follows "was skipped:" in a sentence.
inline constexpr std::string_view kTooLarge = "it is too large";
inline constexpr std::string_view kTooMuchText = "its text is too long";
inline constexpr std::string_view kNoText = "it is not text";
inline constexpr std::string_view kEncrypted = "it is encrypted";
inline constexpr std::string_view kDamaged = "it is damaged, or of another format than its name says";
inline constexpr std::string_view kNoDocument = "it holds no document";
inline constexpr std::string_view kExpandsTooMuch = "it expands to too much";
inline constexpr std::string_view kTooManyParts = "it has too many parts";
inline constexpr std::string_view kNoMemory = "it takes too much memory to read";
inline constexpr std::string_view kUnreadable = "it cannot be read";

inline CExtractedText Problem(std::string_view problem) {
    return {.text = {}, .title = {}, .author = {}, .problem = std::string(problem)};
}

}  // namespace quorbel
