#include "components/lua_engine/LuaPattern.h"

#include <cctype>
#include <cstring>

namespace quorbel {

namespace {

using Kind = CLuaPatternItem::Kind;
using Repetition = CLuaPatternItem::Repetition;
using Set = std::bitset<256>;

unsigned char Byte(char character) noexcept {
    return static_cast<unsigned char>(character);
}

int (*ClassTest(char letter) noexcept)(int) {
    switch (letter) {
        case 'a': return std::isalpha;
        case 'c': return std::iscntrl;
        case 'd': return std::isdigit;
        case 'g': return std::isgraph;
        case 'l': return std::islower;
        case 'p': return std::ispunct;
        case 's': return std::isspace;
        case 'u': return std::isupper;
        case 'w': return std::isalnum;
        case 'x': return std::isxdigit;
        default: return nullptr;
    }
}

/// What "%" and this character stand for.
Set EscapedSet(char character) {
    Set set;
    const auto isInClass = ClassTest(static_cast<char>(std::tolower(Byte(character))));
    if (!isInClass) return set.set(Byte(character));
    for (int code = 0; code != 256; ++code) set[code] = isInClass(code) != 0;
    return std::isupper(Byte(character)) ? ~set : set;
}

/// Reads a pattern from its beginning to its end.
class CCompiler {
 public:
    CCompiler(std::string_view text, CLuaPatternItem* items) : m_left(text), m_items(items) {
        m_pattern.begin = m_pattern.end = items;
    }

    CLuaPattern Compile() {
        while (!m_left.empty() && !m_pattern.error) ReadItem();
        if (!m_pattern.error && m_openCount != 0) Fail("unfinished capture");
        return m_pattern;
    }

 private:
    void ReadItem() {
        CLuaPatternItem item;
        const char character = Take();
        switch (character) {
            case '(': return ReadOpen(item);
            case ')': return ReadClose(item);
            case '.': item.set.set(); break;
            case '[': item.set = ReadSet(); break;
            case '%': return ReadEscape(item);
            case '$':
                if (m_left.empty()) return Add(item, Kind::End);
                [[fallthrough]];
            default: item.set.set(Byte(character)); break;
        }
        AddSingle(item);
    }

    void ReadOpen(CLuaPatternItem& item) {
        if (m_pattern.captures == CLuaPattern::kMostCaptures) return Fail("too many captures");
        item.capture = static_cast<std::uint8_t>(m_pattern.captures++);
        if (TakeIf(')')) return Add(item, Kind::Position);
        m_open[m_openCount++] = item.capture;
        Add(item, Kind::Open);
    }

    void ReadClose(CLuaPatternItem& item) {
        if (m_openCount == 0) return Fail("invalid pattern capture");
        item.capture = m_open[--m_openCount];
        Add(item, Kind::Close);
    }

    void ReadEscape(CLuaPatternItem& item) {
        if (m_left.empty()) return Fail("malformed pattern (ends with '%')");
        const char character = Take();
        if (character == 'b') return ReadBalance(item);
        if (character == 'f') return ReadFrontier(item);
        if (std::isdigit(Byte(character))) return ReadBackReference(item, character);
        item.set = EscapedSet(character);
        AddSingle(item);
    }

    void ReadBalance(CLuaPatternItem& item) {
        if (m_left.size() < 2) return Fail("malformed pattern (missing arguments to '%b')");
        item.first = Take();
        item.second = Take();
        Add(item, Kind::Balance);
    }

    void ReadFrontier(CLuaPatternItem& item) {
        if (!TakeIf('[')) return Fail("missing '[' after '%f' in pattern");
        item.set = ReadSet();
        Add(item, Kind::Frontier);
    }

    void ReadBackReference(CLuaPatternItem& item, char digit) {
        item.capture = static_cast<std::uint8_t>(digit - '1');
        if (item.capture >= m_pattern.captures || IsOpen(item.capture)) return Fail("invalid capture index");
        Add(item, Kind::BackReference);
    }

    bool IsOpen(std::uint8_t capture) const {
        return std::memchr(m_open.data(), capture, m_openCount) != nullptr;
    }

    /// Behind the "[". A "]" that comes first stands for itself.
    Set ReadSet() {
        Set set;
        const bool isComplement = TakeIf('^');
        bool isFirst = true;
        while (!m_left.empty() && (isFirst || m_left.front() != ']')) {
            isFirst = false;
            ReadSetPart(set);
        }
        if (!TakeIf(']')) Fail("malformed pattern (missing ']')");
        return isComplement ? ~set : set;
    }

    void ReadSetPart(Set& set) {
        const char first = Take();
        if (first == '%') {
            if (!m_left.empty()) set |= EscapedSet(Take());
            return;
        }
        const bool isRange = m_left.size() >= 2 && m_left[0] == '-' && m_left[1] != ']';
        if (isRange) m_left.remove_prefix(1);
        const char last = isRange ? Take() : first;
        for (int code = Byte(first); code <= Byte(last); ++code) set.set(code);
    }

    void AddSingle(CLuaPatternItem& item) {
        if (TakeIf('?'))
            item.repetition = Repetition::Optional;
        else if (TakeIf('*'))
            item.repetition = Repetition::Greedy;
        else if (TakeIf('+'))
            item.repetition = Repetition::GreedyOnce;
        else if (TakeIf('-'))
            item.repetition = Repetition::Lazy;
        if (item.repetition != Repetition::Once && ++m_repetitions > CLuaPattern::kMostRepetitions) {
            return Fail("pattern too complex");
        }
        Add(item, Kind::Single);
    }

    void Add(CLuaPatternItem& item, Kind kind) {
        if (m_pattern.error) return;
        item.kind = kind;
        m_items[m_pattern.end - m_pattern.begin] = item;
        ++m_pattern.end;
    }
    void Fail(const char* error) {
        if (!m_pattern.error) m_pattern.error = error;
    }
    char Take() {
        const char character = m_left.front();
        m_left.remove_prefix(1);
        return character;
    }
    bool TakeIf(char character) {
        if (m_left.empty() || m_left.front() != character) return false;
        m_left.remove_prefix(1);
        return true;
    }

    std::string_view m_left;
    CLuaPatternItem* const m_items;
    CLuaPattern m_pattern;
    std::array<std::uint8_t, CLuaPattern::kMostCaptures> m_open{};
    std::size_t m_openCount = 0;
    std::size_t m_repetitions = 0;
};

}  // namespace

CLuaPattern CLuaPattern::Compile(std::string_view text, CLuaPatternItem* items) {
    return CCompiler(text, items).Compile();
}

const char* CLuaMatcher::Run(const CLuaPatternItem* item, const char* at) {
    // Every way to a match passes all captures anew, so what a way that failed left in them does no harm.
    for (; at && item != m_pattern.end; ++item) {
        m_watch.Spend();
        if (item->kind == Kind::Single && item->repetition != Repetition::Once) return Repeat(item, at);
        at = Step(*item, at);
    }
    return at;
}

const char* CLuaMatcher::Step(const CLuaPatternItem& item, const char* at) {
    auto& capture = m_captures[item.capture];
    switch (item.kind) {
        case Kind::Single: return IsOne(item, at) ? at + 1 : nullptr;
        case Kind::Open: capture.begin = at; return at;
        case Kind::Position: capture = {at, nullptr}; return at;
        case Kind::Close: capture.end = at; return at;
        case Kind::Balance: return Balanced(item, at);
        case Kind::Frontier: return IsFrontier(item, at) ? at : nullptr;
        case Kind::BackReference: return Again(capture, at);
        case Kind::End: return at == m_end ? at : nullptr;
    }
    return nullptr;
}

const char* CLuaMatcher::Repeat(const CLuaPatternItem* item, const char* at) {
    if (item->repetition == Repetition::Lazy) return RepeatLazily(item, at);
    const char* last = at;
    const char* const most = item->repetition == Repetition::Optional && at != m_end ? at + 1 : m_end;
    while (last != most && IsOne(*item, last)) ++last;
    m_watch.Spend(static_cast<std::uint64_t>(last - at));
    if (item->repetition == Repetition::GreedyOnce && at++ == last) return nullptr;
    for (;; --last) {
        if (const char* const end = Run(item + 1, last)) return end;
        if (last == at) return nullptr;
    }
}

const char* CLuaMatcher::RepeatLazily(const CLuaPatternItem* item, const char* at) {
    for (;; ++at) {
        m_watch.Spend();
        if (const char* const end = Run(item + 1, at)) return end;
        if (!IsOne(*item, at)) return nullptr;
    }
}

const char* CLuaMatcher::Balanced(const CLuaPatternItem& item, const char* at) {
    if (at == m_end || *at != item.first) return nullptr;
    std::size_t depth = 1;
    while (++at != m_end) {
        m_watch.Spend();
        if (*at == item.second) {
            if (--depth == 0) return at + 1;
        } else if (*at == item.first) {
            ++depth;
        }
    }
    return nullptr;
}

const char* CLuaMatcher::Again(const CCapture& capture, const char* at) {
    // A position has nothing to be found again.
    if (!capture.end) return nullptr;
    const auto size = static_cast<std::size_t>(capture.end - capture.begin);
    m_watch.Spend(size);
    if (static_cast<std::size_t>(m_end - at) < size) return nullptr;
    return std::memcmp(capture.begin, at, size) == 0 ? at + size : nullptr;
}

bool CLuaMatcher::IsFrontier(const CLuaPatternItem& item, const char* at) const {
    const char before = at == m_begin ? '\0' : at[-1];
    const char here = at == m_end ? '\0' : *at;
    return !item.set[Byte(before)] && item.set[Byte(here)];
}

}  // namespace quorbel
