#include <gtest/gtest.h>

#include "components/search/text/Problems.h"
#include "components/search/text/TextEncoding.h"
#include "components/search/text/TextExtractor.h"

namespace quorbel {
namespace {

using namespace std::literals;

TEST(TextFormat, IsToldByTheExtensionWithoutRegardToCase) {
    const std::pair<std::string_view, TextFormat> cases[] = {
        {"a.txt", TextFormat::Plain},
        {"A.TXT", TextFormat::Plain},
        {"notes.2020.log", TextFormat::Plain},
        {"/x/y.csv", TextFormat::Plain},
        {"readme.md", TextFormat::Markdown},
        {"index.HTM", TextFormat::Html},
        {"a.xhtml", TextFormat::Html},
        {"a.Pdf", TextFormat::Pdf},
        {"a.docx", TextFormat::OfficeOpenXml},
        {"a.potm", TextFormat::OfficeOpenXml},
        {"a.odt", TextFormat::OpenDocument},
        {"a.otg", TextFormat::OpenDocument},
        {"a.png", TextFormat::None},
        {"txt", TextFormat::None},
        {".txt", TextFormat::None},
        {"a.", TextFormat::None},
        {"", TextFormat::None},
        {"a.txt~", TextFormat::None},
        {"a.csv tsv", TextFormat::None},
        {"a.abcdefghijklmnopq", TextFormat::None},
    };
    for (const auto& [name, format] : cases) EXPECT_EQ(TextFormatOf(name), format) << name;
}

TEST(PlainText, IsReadInEveryEncodingAndCleaned) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", ""},
        {"one\ntwo", "one\ntwo"},
        {"one\r\ntwo\rthree\r\n", "one\ntwo\nthree\n"},
        {"a\tb", "a\tb"},
        {"\xEF\xBB\xBFpl\xC3\xA4ne", "pl\xC3\xA4ne"},
        {"pl\xC3\xA4ne \xF0\x9F\x98\x80", "pl\xC3\xA4ne \xF0\x9F\x98\x80"},
        {"pl\xE4ne \x80 \x93x\x94", "pl\xC3\xA4ne \xE2\x82\xAC \xE2\x80\x9Cx\xE2\x80\x9D"},
        {"\xFF\xFEp\0l\0\xE4\0"sv, "pl\xC3\xA4"},
        {"\xFE\xFF\0p\0l\0\xE4"sv, "pl\xC3\xA4"},
        {"\xFF\xFE\x3D\xD8\x00\xDE"sv, "\xF0\x9F\x98\x80"},
        // A half of a pair, and an odd byte.
        {"\xFF\xFE\x3D\xD8x\0y"sv, "\xEF\xBF\xBDx"},
        {"\xEF\xBB\xBFlost \xE4 byte", "lost \xEF\xBF\xBD byte"},
        {"a long enough line with one \x1B escape", "a long enough line with one   escape"},
    };
    for (const auto& [bytes, text] : cases) {
        const CExtractedText result = ExtractText(TextFormat::Plain, bytes);
        EXPECT_EQ(result.text, text);
        EXPECT_EQ(result.problem, "") << bytes;
    }
}

TEST(PlainText, ThatIsNoneIsAProblem) {
    std::string noise;
    for (unsigned i = 0; i != 4096; ++i) noise.push_back(static_cast<char>(i * 2654435761U >> 24 | 1));
    const std::string_view cases[] = {"a\0b"sv, "\x01\x02\x03\x04 abc", "\xFF\xFE\0\0a\0\0\0"sv, noise};
    for (const std::string_view bytes : cases) {
        const CExtractedText result = ExtractText(TextFormat::Plain, bytes);
        EXPECT_EQ(result.problem, kNoText);
        EXPECT_EQ(result.text, "");
    }
}

TEST(PlainText, IsBounded) {
    EXPECT_EQ(ExtractText(TextFormat::Plain, std::string(kLargestTextFile + 1, 'a')).problem, kTooLarge);
    // Each byte becomes two.
    EXPECT_EQ(ExtractText(TextFormat::Plain, std::string(kLargestText / 2 + 1, '\xE4')).problem,
              kTooMuchText);
}

TEST(Utf8, IsCheckedByTheRulesAndCutBetweenCharacters) {
    const std::pair<std::string_view, bool> cases[] = {
        {"", true},          {"abcdefghijkl", true},  {"abcdefgh\xC3\xA4", true},  {"abcdefgh\xC3", false},
        {"\xC0\x80", false}, {"\xED\xA0\x80", false}, {"\xF4\x90\x80\x80", false}, {"\xF4\x8F\xBF\xBF", true},
        {"a\x80", false},
    };
    for (const auto& [bytes, isValid] : cases) EXPECT_EQ(IsUtf8(bytes), isValid) << bytes;
    const std::pair<std::size_t, std::string_view> cuts[] = {{0, ""},
                                                             {1, "a"},
                                                             {2, "a"},
                                                             {3, "a\xC3\xA4"},
                                                             {4, "a\xC3\xA4"},
                                                             {6, "a\xC3\xA4"},
                                                             {7, "a\xC3\xA4\xF0\x9F\x98\x80"}};
    for (const auto& [most, cut] : cuts) EXPECT_EQ(CutUtf8("a\xC3\xA4\xF0\x9F\x98\x80", most), cut) << most;
}

struct CMarkdownCase {
    std::string_view lines;
    std::string_view title;
    std::string_view author;
    std::string_view text;
};

TEST(Markdown, GivesTitleAuthorAndTextWithoutItsMarks) {
    const CMarkdownCase cases[] = {
        {"plain\n", "", "", "plain\n"},
        {"# One #\n\n## Two\n", "One", "", "One\n\nTwo\n"},
        {"#tag\n", "", "", "#tag\n"},
        {"intro\n\nTitle *here*\n====\ntext\n", "Title here", "", "intro\n\nTitle *here*\ntext\n"},
        {"---\ntitle: \"The **Log**\"\nauthor: Ann Lee\n---\n# Other\n", "The **Log**", "Ann Lee",
         "The Log\nAnn Lee\nOther\n"},
        // Without an end it is no front matter.
        {"---\ntitle: x\n", "", "", "title: x\n"},
        {"```\n# no **heading**\n```\n# C# in `use`\n", "C# in use", "", "# no **heading**\nC# in use\n"},
        {"**bold** and `code` of snake_case\n", "", "", "bold and code of snake_case\n"},
    };
    for (const CMarkdownCase& each : cases) {
        const CExtractedText result = ExtractText(TextFormat::Markdown, each.lines);
        EXPECT_EQ(result.title, each.title) << each.lines;
        EXPECT_EQ(result.author, each.author) << each.lines;
        EXPECT_EQ(result.text, each.text) << each.lines;
    }
}

}  // namespace
}  // namespace quorbel
