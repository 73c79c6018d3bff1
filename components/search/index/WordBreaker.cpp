#include "components/search/index/WordBreaker.h"

#include <array>
#include <cstdint>
#include <string>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>
#include <vector>

#include "platform/Error.h"

namespace quorbel {

namespace {

/// What a character is to a word.
enum class Part : std::uint8_t {
    None,    ///< it separates words
    Letter,  ///< it belongs to the word before it
    Alone,   ///< it is a word, with the marks that follow
    Mark,    ///< it belongs to the letter before it
    Ignored  ///< it is in a word without being seen: soft hyphens, joiners, accents
};

struct CCharacter {
    Part part = Part::None;
    std::string folded;
};

/// Words are cut behind so many bytes: longer ones are no words, but encoded data.
constexpr std::size_t kLongestWord = 200;

bool IsWrittenWithoutBlanks(UScriptCode script) {
    switch (static_cast<int>(script)) {
        case USCRIPT_HAN:
        case USCRIPT_HIRAGANA:
        case USCRIPT_KATAKANA:
        case USCRIPT_HANGUL:
        case USCRIPT_BOPOMOFO:
        case USCRIPT_THAI:
        case USCRIPT_LAO:
        case USCRIPT_KHMER:
        case USCRIPT_MYANMAR:
        case USCRIPT_TIBETAN:
        case USCRIPT_YI: return true;
        default: return false;
    }
}

/// Marks that are written over, under and in letters which mean the same without them. Vowel signs, viramas
/// and the marks of voiced kana are none.
bool IsAccent(UChar32 character) {
    const int combiningClass = u_getCombiningClass(character);
    constexpr int kFirstPoint = 10;  // Hebrew and Arabic points
    constexpr int kLastPoint = 36;
    constexpr int kFirstAttached = 200;
    return (combiningClass >= kFirstPoint && combiningClass <= kLastPoint) ||
           combiningClass >= kFirstAttached;
}

/// Letters whose stroke Unicode takes for a part of them, but people do not.
UChar32 WithoutStroke(UChar32 character) {
    switch (character) {
        case 0x00F8: return 'o';
        case 0x0111: return 'd';
        case 0x0127: return 'h';
        case 0x0131: return 'i';
        case 0x0142: return 'l';
        case 0x0167: return 't';
        default: return character;
    }
}

bool IsHangulSyllable(UChar32 character) {
    return character >= 0xAC00 && character <= 0xD7A3;
}

Part PartOf(UChar32 character) {
    constexpr std::uint32_t kMarks = U_GC_M_MASK;
    constexpr std::uint32_t kLetters = U_GC_L_MASK | U_GC_N_MASK;
    const std::uint32_t category = U_GET_GC_MASK(character);
    if ((category & U_GC_CF_MASK) != 0)
        return u_hasBinaryProperty(character, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) ? Part::Ignored
                                                                                  : Part::None;
    if ((category & kMarks) != 0) return IsAccent(character) ? Part::Ignored : Part::Mark;
    if ((category & kLetters) == 0) return Part::None;
    UErrorCode error = U_ZERO_ERROR;
    const UScriptCode script = uscript_getScript(character, &error);
    if (U_SUCCESS(error) && IsWrittenWithoutBlanks(script)) return Part::Alone;
    // The mark of long vowels is shared by both kana.
    return uscript_hasScript(character, USCRIPT_KATAKANA) ? Part::Alone : Part::Letter;
}

std::string Fold(UChar32 character) {
    UErrorCode error = U_ZERO_ERROR;
    const auto* const folder = icu::Normalizer2::getNFKCCasefoldInstance(error);
    const auto* const decomposer = icu::Normalizer2::getNFDInstance(error);
    if (U_FAILURE(error)) return {};
    const icu::UnicodeString composed = folder->normalize(icu::UnicodeString(character), error);
    icu::UnicodeString folded;
    for (std::int32_t at = 0; at < composed.length(); at = composed.moveIndex32(at, 1)) {
        const UChar32 one = composed.char32At(at);
        icu::UnicodeString parts;
        // Syllables stay whole: they are what people search for.
        if (IsHangulSyllable(one) || !decomposer->getDecomposition(one, parts)) parts = one;
        for (std::int32_t in = 0; in < parts.length(); in = parts.moveIndex32(in, 1)) {
            const UChar32 part = parts.char32At(in);
            // (The stroke of a fraction is no part of a word.)
            const Part kind = PartOf(part);
            if (kind != Part::None && kind != Part::Ignored) folded.append(WithoutStroke(part));
        }
    }
    std::string utf8;
    return folded.toUTF8String(utf8);
}

CCharacter Describe(UChar32 character) {
    CCharacter described{PartOf(character), {}};
    if (described.part == Part::None || described.part == Part::Ignored) return described;
    described.folded = Fold(character);
    if (described.folded.empty()) described.part = Part::Ignored;
    // Forms of half width have marks that are letters by themselves.
    std::int32_t at = 0;
    UChar32 first = 0;
    U8_NEXT(described.folded.data(), at, static_cast<std::int32_t>(described.folded.size()), first);
    if (first > 0 && PartOf(first) == Part::Mark) described.part = Part::Mark;
    return described;
}

/// The characters of the basic plane, described once.
class CCharacters {
 public:
    CCharacters() : m_parts(kCount), m_starts(kCount + 1) {
        for (UChar32 character = 0; character != kCount; ++character) {
            const CCharacter described = Describe(character);
            m_parts[character] = described.part;
            m_starts[character] = static_cast<std::uint32_t>(m_folded.size());
            m_folded += described.folded;
        }
        m_starts[kCount] = static_cast<std::uint32_t>(m_folded.size());
    }
    static constexpr UChar32 kCount = 0x10000;

    Part PartAt(UChar32 character) const noexcept { return m_parts[character]; }
    std::string_view FoldedAt(UChar32 character) const noexcept {
        return std::string_view(m_folded).substr(m_starts[character],
                                                 m_starts[character + 1] - m_starts[character]);
    }

 private:
    std::vector<Part> m_parts;
    std::vector<std::uint32_t> m_starts;  // into m_folded
    std::string m_folded;
};

/// Gathers the letters of one word after the other.
class CWordGatherer {
 public:
    explicit CWordGatherer(const OnWord& onWord) : m_onWord(onWord) {}

    /// False when no more words are wanted.
    bool Take(Part part, std::string_view folded, std::size_t begin, std::size_t end) {
        switch (part) {
            case Part::None: return Finish();
            case Part::Ignored:
                // Belongs to the word in the text, so that marking the word marks it, too.
                if (!m_word.empty()) m_end = end;
                return true;
            case Part::Alone:
                if (!Finish()) return false;
                m_isAlone = true;
                break;
            case Part::Letter:
                if (m_isAlone && !Finish()) return false;
                break;
            case Part::Mark: break;
        }
        if (m_word.empty()) m_begin = begin;
        if (m_word.size() + folded.size() <= kLongestWord) m_word += folded;
        m_end = end;
        return true;
    }

    bool Finish() {
        m_isAlone = false;
        if (m_word.empty()) return true;
        const bool wantsMore = m_onWord(m_word, m_begin, m_end);
        m_word.clear();
        return wantsMore;
    }

 private:
    const OnWord& m_onWord;
    std::string m_word;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_isAlone = false;
};

}  // namespace

void BreakWords(std::string_view text, const OnWord& onWord) {
    static const CCharacters characters;
    CWordGatherer words(onWord);
    const auto size = static_cast<std::int64_t>(text.size());
    for (std::int64_t at = 0; at < size;) {
        const auto begin = static_cast<std::size_t>(at);
        UChar32 character = 0;
        U8_NEXT(text.data(), at, size, character);
        const auto end = static_cast<std::size_t>(at);
        bool wantsMore = true;
        if (character < 0) {
            wantsMore = words.Finish();
        } else if (character < CCharacters::kCount) {
            wantsMore = words.Take(characters.PartAt(character), characters.FoldedAt(character), begin, end);
        } else {
            const CCharacter described = Describe(character);
            wantsMore = words.Take(described.part, described.folded, begin, end);
        }
        if (!wantsMore) return;
    }
    Ignore(words.Finish());
}

}  // namespace quorbel
