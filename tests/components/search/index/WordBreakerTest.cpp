#include <gmock/gmock.h>

#include "components/search/index/WordBreaker.h"
#include "platform/Text.h"

namespace quorbel {
namespace {

std::vector<std::string> WordsOf(std::string_view text) {
    std::vector<std::string> words;
    BreakWords(text, [&](std::string_view word, std::size_t begin, std::size_t end) {
        EXPECT_LT(begin, end);
        EXPECT_LE(end, text.size());
        words.emplace_back(word);
        return true;
    });
    return words;
}

TEST(WordBreaker, FindsTheWordsOfEveryScriptWithoutCaseAndAccents) {
    struct CCase {
        std::string_view text;
        std::vector<std::string> words;
    };
    const CCase cases[] = {
        {"", {}},
        {" ,;-!\n", {}},
        {"The Lighthouse, 1894.", {"the", "lighthouse", "1894"}},
        {"report_2020-final.pdf", {"report", "2020", "final", "pdf"}},
        {"Élève ÉLÈVE e\u0301le\u0300ve", {"eleve", "eleve", "eleve"}},
        {"Straße STRASSE", {"strasse", "strasse"}},
        {"Łódź smørrebrød đ ı", {"lodz", "smorrebrod", "d", "i"}},
        {"ΦΆΡΟΣ φάρος", {"φαροσ", "φαροσ"}},
        {"МАЯК Ёлка", {"маяк", "елка"}},
        {"שָׁלוֹם", {"שלום"}},
        {"مَكْتَبَة", {"مكتبة"}},
        {"灯台守", {"灯", "台", "守"}},
        {"ガラス ｶﾞﾗｽ", {"カ\u3099", "ラ", "ス", "カ\u3099", "ラ", "ス"}},
        {"등대 지기", {"등", "대", "지", "기"}},
        {"2020年5月", {"2020", "年", "5", "月"}},
        {"ห้องสมุด", {"ห้", "อ", "ง", "ส", "มุ", "ด"}},
        {"पुस्तकालय की", {"पुस्तकालय", "की"}},
        {"co\u00ADoperate", {"cooperate"}},
        {"ﬁle Ⅷ ①", {"file", "viii", "1"}},
        {"𝔖𝔢𝔢 🙂 𠮷", {"see", "𠮷"}},
        {"a\xFF\x62", {"a", "b"}},
    };
    for (const CCase& one : cases) EXPECT_EQ(WordsOf(one.text), one.words) << one.text;
}

TEST(WordBreaker, BreaksItsOwnWordsIntoThemselves) {
    // Queries are made of folded words and are broken once more.
    for (wchar_t character = 1; character != 0x20000; ++character) {
        if (character >= 0xD800 && character < 0xE000) continue;
        for (const std::string& word : WordsOf(ToUtf8(std::wstring(1, character)))) {
            const auto again = WordsOf(word);
            std::string joined;
            for (const std::string& part : again) joined += part;
            ASSERT_EQ(joined, word) << std::hex << static_cast<unsigned>(character);
        }
    }
}

TEST(WordBreaker, SaysWhichBytesAWordStandsFor) {
    const std::string text = "«L’Élève»";
    std::vector<std::string> found;
    BreakWords(text, [&](std::string_view, std::size_t begin, std::size_t end) {
        found.push_back(text.substr(begin, end - begin));
        return true;
    });
    EXPECT_EQ(found, (std::vector<std::string>{"L", "Élève"}));
}

TEST(WordBreaker, StopsWhenNoMoreWordsAreWantedAndCutsEndlessOnes) {
    int taken = 0;
    BreakWords("one two three", [&](std::string_view, std::size_t, std::size_t) { return ++taken < 2; });
    EXPECT_EQ(taken, 2);
    const auto words = WordsOf(std::string(100'000, 'x') + " y");
    ASSERT_EQ(words.size(), 2U);
    EXPECT_LE(words[0].size(), 255U);
}

}  // namespace
}  // namespace quorbel
