#include "components/search/query/CommandParser.h"
#include "components/search/query/FolderPath.h"
#include "components/search/query/LikePattern.h"
#include "components/search/query/SearchBounds.h"
#include "components/search/query/SearchDate.h"
#include "platform/Text.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

std::wstring ProblemOf(const std::wstring& text) {
    const auto parsed = ParseSearchCommand(text);
    const auto* const error = std::get_if<CSyntaxError>(&parsed);
    return error ? error->Text() : std::wstring();
}

std::wstring Where(const std::wstring& condition) {
    return L"SELECT System.ItemUrl FROM SystemIndex WHERE " + condition;
}

TEST(CommandParser, SaysWhatIsWrongAndWhere) {
    const std::pair<std::wstring, std::wstring> cases[] = {
        {L"", L"Where SELECT is expected, the command ends (character 1)."},
        {L"DELETE FROM SystemIndex", L"Where SELECT is expected, there is \"DELETE\" (character 1)."},
        {L"SELECT", L"Where a column is expected, the command ends (character 7)."},
        {L"SELECT * FROM SystemIndex", L"Where a column is expected, there is \"*\" (character 8)."},
        {L"SELECT System.Foo FROM SystemIndex", L"There is no column \"System.Foo\" (character 8)."},
        {L"SELECT System.Search.Contents FROM SystemIndex",
         L"\"System.Search.Contents\" cannot be selected (character 8)."},
        {L"SELECT TOP x System.Size FROM SystemIndex",
         L"Where a number of rows is expected, there is \"x\" (character 12)."},
        {L"SELECT TOP -1 System.Size FROM SystemIndex",
         L"Where a number of rows is expected, there is \"-1\" (character 12)."},
        {L"SELECT TOP 1e9 System.Size FROM SystemIndex",
         L"Where a number of rows is expected, there is \"1e9\" (character 12)."},
        {L"SELECT System.Size System.Kind FROM SystemIndex",
         L"Where FROM is expected, there is \"System.Kind\" (character 20)."},
        {L"SELECT System.Size FROM documents",
         L"Where SystemIndex is expected, there is \"documents\" (character 25)."},
        {L"SELECT System.Size FROM SystemIndex; DROP TABLE words",
         L"Where the end of the command is expected, there is \";\" (character 36)."},
        {L"SELECT System.Size FROM SystemIndex ORDER System.Size",
         L"Where BY is expected, there is \"System.Size\" (character 43)."},
        {L"SELECT System.Size FROM SystemIndex ORDER BY System.Search.AutoSummary",
         L"\"System.Search.AutoSummary\" cannot be sorted by (character 46)."},
        {Where(L""), L"Where a column is expected, the command ends (character 46)."},
        {Where(L"1 = 1"), L"Where a column is expected, there is \"1\" (character 46)."},
        {Where(L"System.Size"), L"Where a comparison is expected, the command ends (character 57)."},
        {Where(L"System.Size = 'x'"), L"Where a whole number is expected, there is \"x\" (character 60)."},
        {Where(L"System.Size = 1.5"), L"Where a whole number is expected, there is \"1.5\" (character 60)."},
        {Where(L"System.Size = 99999999999999999999"),
         L"Where a whole number is expected, there is \"99999999999999999999\" (character 60)."},
        {Where(L"System.Size LIKE '1%'"),
         L"Where a comparison with a whole number is expected, there is \"1%\" (character 63)."},
        {Where(L"System.Title = 5"),
         L"Where a text in single quotes is expected, there is \"5\" (character 61)."},
        {Where(L"System.Title = NULL"),
         L"Where a text in single quotes is expected, there is \"NULL\" (character 61)."},
        {Where(L"System.Title = 'x"), L"A quotation mark is not closed (character 61)."},
        {Where(L"\"System.Title = 'x'"), L"A quotation mark is not closed (character 46)."},
        {Where(L"System.Title NOT 'x'"), L"Where LIKE or IN is expected, there is \"x\" (character 63)."},
        {Where(L"System.Title LIKE 'a[b'"), L"A \"[\" of the pattern is not closed (character 64)."},
        {Where(L"System.Title IN ()"),
         L"Where a text in single quotes is expected, there is \")\" (character 63)."},
        {Where(L"System.DateModified > '2020-02-30'"), L"\"2020-02-30\" is no date (character 68)."},
        {Where(L"System.DateModified > '2020'"), L"\"2020\" is no date (character 68)."},
        {Where(L"System.Search.Rank > 5"), L"\"System.Search.Rank\" cannot be compared (character 46)."},
        {Where(L"(System.Size = 1"), L"Where ) is expected, the command ends (character 62)."},
        {Where(L"System.Size = 1)"),
         L"Where the end of the command is expected, there is \")\" (character 61)."},
        {Where(L"System.Size = 1 OR"), L"Where a column is expected, the command ends (character 64)."},
        {Where(L"SCOPE = 'docs'"), L"\"docs\" is no absolute path of a folder (character 54)."},
        {Where(L"SCOPE > '/docs'"), L"Where = is expected, there is \">\" (character 52)."},
        {Where(L"SCOPE = '/docs' -- x"),
         L"Where the end of the command is expected, there is \"-\" (character 62)."},
        {Where(L"sqlite_version() = '1'"), L"There is no column \"sqlite_version\" (character 46)."},
        {Where(L"CONTAINS(System.Size, '1')"), L"\"System.Size\" has no words to look for (character 55)."},
        {Where(L"CONTAINS('it''s \"x')"), L"A quotation mark is not closed (character 62)."},
        {Where(L"CONTAINS('fox AND')"), L"A word is missing at the end of the words (character 63)."},
        {Where(L"CONTAINS('OR fox')"), L"A word is missing (character 56)."},
        {Where(L"CONTAINS('(fox')"), L"A \"(\" is not closed (character 56)."},
        {Where(L"CONTAINS('fox)')"), L"There is a \")\" without its \"(\" (character 59)."},
        {Where(L"CONTAINS('fox NEAR (bear)')"), L"A word is missing behind NEAR (character 65)."},
        {Where(L"CONTAINS('fox'"), L"Where ) is expected, the command ends (character 60)."},
    };
    for (const auto& [text, problem] : cases) {
        EXPECT_EQ(ProblemOf(text), problem) << testing::PrintToString(text);
    }
}

TEST(CommandParser, RefusesWhatIsTooMuch) {
    const auto repeated = [](std::wstring_view text, std::size_t count) {
        std::wstring all;
        while (count-- != 0) all += text;
        return all;
    };
    using Bounds = CSearchBounds;
    const std::size_t most = Bounds::kNesting;
    EXPECT_EQ(ProblemOf(Where(repeated(L"(", most) + L"System.Size = 1" + repeated(L")", most))), L"");
    EXPECT_EQ(ProblemOf(Where(repeated(L"(", most + 1) + L"System.Size = 1" + repeated(L")", most + 1))),
              L"Parentheses and NOTs are nested too deeply (character 58).");
    EXPECT_EQ(ProblemOf(Where(repeated(L"NOT ", 20'000) + L"System.Size = 1")),
              L"Parentheses and NOTs are nested too deeply (character 94).");
    EXPECT_EQ(ProblemOf(Where(L"CONTAINS('" + repeated(L"(", 50'000) + L"')")),
              L"Parentheses and NOTs are nested too deeply (character 68).");
    EXPECT_EQ(ProblemOf(Where(L"CONTAINS('" + repeated(L"a ", 20'000) + L"')")),
              L"There are too many words (character 1056).");
    EXPECT_EQ(ProblemOf(Where(L"FREETEXT('" + repeated(L"a ", 20'000) + L"')")),
              L"There are too many words (character 1056).");
    EXPECT_EQ(ProblemOf(Where(L"System.Size IN (" + repeated(L"1,", 20'000) + L"1)")),
              L"The command has too many conditions (character 1060).");
    EXPECT_EQ(ProblemOf(Where(L"System.Title = '" + repeated(L"x", 100'000) + L"'")),
              L"The text is too long (character 100001).");
    EXPECT_EQ(ProblemOf(Where(L"System.Title LIKE '" + repeated(L"%", Bounds::kPattern + 1) + L"'")),
              L"The pattern is too long (character 64).");
}

TEST(SearchProperties, AreAllDescribed) {
    const std::string page = ReadFile(std::string(QUORBEL_SOURCES) + "/docs/search-queries.md");
    for (const CSearchProperty& property : SearchProperties()) {
        EXPECT_NE(page.find(ToUtf8(property.name)), std::string::npos) << ToUtf8(property.name);
        EXPECT_EQ(ProblemOf(Where(std::wstring(property.name) + L" IS NULL")).empty(),
                  !property.compared.empty());
    }
}

TEST(LikePattern, MatchesWithoutRegardToCase) {
    const std::tuple<std::wstring, std::wstring, bool> cases[] = {
        {L"report.txt", L"report.txt", true},
        {L"Report.TXT", L"rEPORT.txt", true},
        {L"ÄPFEL", L"äp%", true},
        {L"report", L"repor", false},
        {L"report", L"%", true},
        {L"", L"%", true},
        {L"", L"", true},
        {L"", L"_", false},
        {L"abc", L"a_c", true},
        {L"abc", L"%b%", true},
        {L"abcbd", L"%b_", true},
        {L"abcbd", L"a%c", false},
        {L"100%", L"100[%]", true},
        {L"1000", L"100[%]", false},
        {L"b", L"[a-c]", true},
        {L"B", L"[^a-c]", false},
        {L"x", L"[^a-c]", true},
        {L"]", L"[]]", true},
        {L"-", L"[a-]", true},
        {L"[x]", L"[[]x]", true},
    };
    for (const auto& [text, pattern, isLike] : cases) {
        EXPECT_TRUE(IsLikePattern(pattern));
        EXPECT_EQ(IsLike(text, pattern), isLike) << testing::PrintToString(pattern);
    }
    for (const wchar_t* const pattern : {L"[", L"[]", L"[^]", L"a[b"}) EXPECT_FALSE(IsLikePattern(pattern));
    // Takes ages when every "%" is tried anew.
    std::wstring many;
    for (int count = 0; count != 300; ++count) many += L"%a";
    EXPECT_FALSE(IsLike(std::wstring(5000, L'a'), many + L"b"));
}

TEST(SearchDate, ReadsPointsInTime) {
    const std::pair<std::wstring, std::optional<std::int64_t>> cases[] = {
        {L"1970-01-01", 0},
        {L"1969-12-31", -86400},
        {L"2026-11-23T11:22:33Z", 1795432953},
        {L"2026-11-23 11:22:33", 1795432953},
        {L"2026-11-23T11:22", 1795432920},
        {L"0001-01-01", -62135596800},
        {L"9999-12-31T23:59:59Z", 253402300799},
        {L"2024-02-29", 1709164800},
        {L"2023-02-29", std::nullopt},
        {L"2023-00-10", std::nullopt},
        {L"0000-01-01", std::nullopt},
        {L"2023-1-1", std::nullopt},
        {L"2023-01-01T24:00", std::nullopt},
        {L"2023-01-01T10", std::nullopt},
        {L"2023-01-01T10:00:60", std::nullopt},
        {L"2023-01-01T10:00:00.5Z", std::nullopt},
        {L"2023-01-01 x", std::nullopt},
    };
    for (const auto& [text, seconds] : cases) {
        EXPECT_EQ(ParseInstant(text), seconds) << testing::PrintToString(text);
    }
}

TEST(SearchFolderPath, IsLexicallyNormal) {
    const std::pair<std::wstring, std::optional<std::string>> cases[] = {
        {L"file:/srv/docs", "/srv/docs"},
        {L"FILE:///srv//docs/", "/srv/docs"},
        {L"/srv/./docs/x/..", "/srv/docs"},
        {L"\\srv\\docs\\", "/srv/docs"},
        {L"file:\\srv/Käse %20", "/srv/Käse %20"},
        {L"/../../srv", "/srv"},
        {L"/", ""},
        {L"file:/", ""},
        {L"file:", std::nullopt},
        {L"", std::nullopt},
        {L"srv/docs", std::nullopt},
        {L"C:\\docs", std::nullopt},
        {std::wstring(L"/srv\0x", 6), std::nullopt},
    };
    for (const auto& [folder, path] : cases) {
        EXPECT_EQ(SearchFolderPath(folder), path) << testing::PrintToString(folder);
    }
}

}  // namespace
}  // namespace quorbel
