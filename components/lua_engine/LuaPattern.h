#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "components/lua_engine/LuaWatch.h"

namespace quorbel {

/// One element of a pattern (Lua 5.4 reference manual, section 6.4.1).
struct CLuaPatternItem {
    enum class Kind : std::uint8_t {
        Single,  ///< a character of `set`, `repetition` times
        Open,
        Position,  ///< "()"
        Close,
        Balance,        ///< "%bxy": `first` is x, `second` is y
        Frontier,       ///< "%f" and `set`
        BackReference,  ///< "%1"
        End             ///< "$" at the end
    };
    enum class Repetition : std::uint8_t { Once, Optional, Greedy, GreedyOnce, Lazy };

    Kind kind = Kind::Single;
    Repetition repetition = Repetition::Once;
    std::uint8_t capture = 0;  ///< of Open, Position, Close and BackReference, from 0
    char first = 0;
    char second = 0;
    std::bitset<256> set;
};

/// A pattern without its leading "^". Refers to the memory that it was compiled into.
struct CLuaPattern {
    const CLuaPatternItem* begin = nullptr;
    const CLuaPatternItem* end = nullptr;
    std::size_t captures = 0;
    /// Why the text is no pattern; null when it is one.
    const char* error = nullptr;

    static constexpr std::size_t kMostCaptures = 32;
    /// Bounds how deeply the search for a match nests.
    static constexpr std::size_t kMostRepetitions = 200;

    /// `items` has room for as many items as the text has characters. A text that is no pattern is refused
    /// here, also where a match would not come so far.
    static CLuaPattern Compile(std::string_view text, CLuaPatternItem* items);
};

/// Finds matches in one subject. Each step is counted by the watch, which may jump out.
class CLuaMatcher {
 public:
    struct CCapture {
        const char* begin = nullptr;
        const char* end = nullptr;  ///< null for a position
    };

    CLuaMatcher(const CLuaPattern& pattern, std::string_view subject, CLuaWatch& watch)
        : m_pattern(pattern),
          m_begin(subject.data()),
          m_end(subject.data() + subject.size()),
          m_watch(watch) {}

    /// Matches from exactly `start` on: the match's end, or null.
    const char* Match(const char* start) { return Run(m_pattern.begin, start); }
    /// Of the last match.
    const CCapture& Capture(std::size_t index) const { return m_captures[index]; }

    const CLuaPattern& Pattern() const noexcept { return m_pattern; }
    const char* Begin() const noexcept { return m_begin; }
    const char* End() const noexcept { return m_end; }

 private:
    const char* Run(const CLuaPatternItem* item, const char* at);
    const char* Repeat(const CLuaPatternItem* item, const char* at);
    const char* RepeatLazily(const CLuaPatternItem* item, const char* at);
    const char* Step(const CLuaPatternItem& item, const char* at);
    const char* Balanced(const CLuaPatternItem& item, const char* at);
    const char* Again(const CCapture& capture, const char* at);
    bool IsFrontier(const CLuaPatternItem& item, const char* at) const;
    bool IsOne(const CLuaPatternItem& item, const char* at) const {
        return at != m_end && item.set[static_cast<unsigned char>(*at)];
    }

    const CLuaPattern m_pattern;
    const char* const m_begin;
    const char* const m_end;
    CLuaWatch& m_watch;
    std::array<CCapture, CLuaPattern::kMostCaptures> m_captures;
};

}  // namespace quorbel
