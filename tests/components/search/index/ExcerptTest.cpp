#include <gmock/gmock.h>

#include "components/search/index/Excerpt.h"

namespace quorbel {
namespace {

/// The excerpt of a text that comes in pieces of so many bytes, its marks shown as brackets.
std::string ShownExcerpt(std::string_view text, std::string_view query, std::size_t size,
                         std::size_t pieceSize = 7) {
    std::size_t at = 0;
    std::string excerpt = Excerpt(
        [&] {
            const std::string_view piece = text.substr(at, pieceSize);
            at += piece.size();
            return piece;
        },
        SoughtPhrases(query), size);
    for (char& byte : excerpt) {
        if (byte == kMarkBegin) byte = '[';
        if (byte == kMarkEnd) byte = ']';
    }
    return excerpt;
}

constexpr std::string_view kLetter =
    "Dear Sir,\n\nthe keeper of the lighthouse   reports that the lamp was out for two nights. The storm "
    "broke "
    "the panes of the lantern, and the oil ran short. We ask for glass, for oil and for a second keeper "
    "before "
    "the winter storms. Yours, E. Brandt, harbour master";

TEST(Excerpt, ShowsTheWordsThatWereLookedFor) {
    EXPECT_EQ(ShownExcerpt(kLetter, R"("lamp")", 60),
              "…that the [lamp] was out for two nights. The storm broke the panes…");
    EXPECT_EQ(ShownExcerpt(kLetter, R"("dear")", 40), "[Dear] Sir, the keeper of the lighthouse…");
    EXPECT_EQ(ShownExcerpt(kLetter, R"("harbour master")", 40), "…Brandt, [harbour master]");
    EXPECT_EQ(ShownExcerpt(kLetter, R"("light"*)", 30), "…the [lighthouse] reports that…");
    EXPECT_EQ(ShownExcerpt(kLetter, R"("nothing")", 30), "Dear Sir, the keeper of the lighthouse…");
    EXPECT_EQ(ShownExcerpt(kLetter, "", 30), "Dear Sir, the keeper of the lighthouse…");
    EXPECT_EQ(ShownExcerpt("", R"("lamp")", 30), "");
    EXPECT_EQ(ShownExcerpt(" \n ", R"("lamp")", 30), "");
}

TEST(Excerpt, PrefersThePlaceWithMostOfTheWords) {
    EXPECT_THAT(ShownExcerpt(kLetter, R"("oil" AND "winter")", 90),
                testing::HasSubstr("[oil] and for a second keeper"));
    EXPECT_THAT(ShownExcerpt(kLetter, R"("oil" AND "winter")", 90), testing::HasSubstr("the [winter]"));
}

TEST(Excerpt, FindsPhrasesThatRepeatTheirBeginning) {
    EXPECT_EQ(ShownExcerpt("ha ha he", R"("ha he")", 50), "ha [ha he]");
    EXPECT_EQ(ShownExcerpt("ha ha ha he", R"("ha ha he")", 50), "ha [ha ha he]");
}

TEST(Excerpt, MarksPartsOfTextsWithoutBlanks) {
    EXPECT_EQ(ShownExcerpt("灯台守の日誌です", R"("日 誌")", 100, 1000), "灯台守の[日誌]です");
}

TEST(Excerpt, IsTheSameInWhateverPiecesTheTextComes) {
    const std::string whole = ShownExcerpt(kLetter, R"("oil" "keeper" "storm"*)", 80, kLetter.size());
    for (std::size_t pieceSize = 1; pieceSize != 40; ++pieceSize) {
        EXPECT_EQ(ShownExcerpt(kLetter, R"("oil" "keeper" "storm"*)", 80, pieceSize), whole) << pieceSize;
    }
}

TEST(Excerpt, ShowsNoControlCharacterOfTheText) {
    EXPECT_EQ(ShownExcerpt("a \x02lamp\x03 b\x01", R"("lamp")", 50), "a [lamp] b");
}

TEST(Excerpt, NeverCutsACharacter) {
    std::string text;
    for (int count = 0; count != 500; ++count) text += "灯";
    for (std::size_t size = 20; size != 60; ++size) {
        const std::string excerpt = ShownExcerpt(text, "", size);
        EXPECT_EQ(excerpt.substr(0, 3), "灯");
        EXPECT_EQ((excerpt.size() - 3) % 3, 0U) << size;
    }
}

TEST(SoughtPhrases, AreTheQuotedPartsOfAnExpression) {
    const auto phrases = SoughtPhrases(R"({title} : ("old map" * OR "a ""b""") AND "x"*)");
    ASSERT_EQ(phrases.size(), 3U);
    EXPECT_EQ(phrases[0].words, (std::vector<std::string>{"old", "map"}));
    EXPECT_TRUE(phrases[0].isPrefix);
    EXPECT_EQ(phrases[1].words, (std::vector<std::string>{"a", "b"}));
    EXPECT_FALSE(phrases[1].isPrefix);
    EXPECT_TRUE(phrases[2].isPrefix);
    EXPECT_TRUE(SoughtPhrases(R"(" - " "unfinished)").size() == 1);
}

}  // namespace
}  // namespace quorbel
