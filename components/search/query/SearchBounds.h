#pragma once

#include <cstddef>

namespace quorbel {

/// What a command may hold at most. SQLite's own bounds lie beyond.
struct CSearchBounds {
    static constexpr std::size_t kCharacters = 100'000;
    static constexpr std::size_t kNesting = 12;      ///< of parentheses and NOTs; NOT ( is one
    static constexpr std::size_t kConditions = 500;  ///< comparisons, words, phrases, texts of lists
    static constexpr std::size_t kWords = 1000;      ///< of all phrases
    /// Beginnings of words. Each is as dear as all the words that begin so.
    static constexpr std::size_t kBeginnings = 8;
    static constexpr std::size_t kPattern = 1000;  ///< characters of one LIKE
    static constexpr std::size_t kColumns = 100;   ///< selected, and sorted by
};

/// What a user's query may hold at most; a command made of it is within its own bounds.
struct CUserQueryBounds {
    static constexpr std::size_t kCharacters = 4096;
    static constexpr std::size_t kNesting = 8;  ///< of parentheses
    static constexpr std::size_t kTerms = 150;  ///< words, phrases, values
    static constexpr std::size_t kWords = 500;  ///< of all of them
};

}  // namespace quorbel
