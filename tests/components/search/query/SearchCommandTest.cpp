#include <gmock/gmock.h>

#include "components/search/query/SearchBounds.h"
#include "components/search/query/SearchRows.h"
#include "tests/components/search/query/SearchFixture.h"

namespace quorbel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMay2020 = 1589710830 * kSecond + kSecond / 2;  // 2020-05-17T10:20:30.5Z

class SearchCommand : public CSearchFixture {
 protected:
    void SetUp() override {
        CSearchFixture::SetUp();
        Put({{"/srv/docs", "report.txt", "The quick brown fox jumps over the lazy dog", "Annual Report",
              "Ann Müller", 1000, kMay2020},
             {"/srv/docs/sub", "Notes.md", "brown bears hunt; quick foxes hide, said O'Brien", "", "Bob",
              2000, -kSecond / 2},
             {"/srv/docs/sub/deep", "a_b%c.txt", "foo-bar and bar foo", "100% [sure]", "", 5000000000, 0},
             {"/srv/docs-old", "report.txt", "quick brown rabbit", "", "", 3000, kMay2020 + kSecond},
             {"/srv/docs", "北京.txt", "我爱北京天安门", "", "", 10, 0},
             {"/srv", "photo.JPG", "", "", "", 20, 0},
             {"", "root.pdf", "rooted", "", "", 30, 0}});
    }
    /// The names of the documents for which a condition holds, sorted.
    static std::vector<std::wstring> Names(const std::wstring& condition) {
        const auto answer = RunSearch(L"SELECT System.ItemPathDisplay FROM SystemIndex WHERE " + condition +
                                      L" ORDER BY System.ItemPathDisplay");
        EXPECT_EQ(answer.result, S_OK) << testing::PrintToString(answer.problem);
        return answer.rows;
    }
};

const std::wstring kReport = L"/srv/docs/report.txt";
const std::wstring kNotes = L"/srv/docs/sub/Notes.md";
const std::wstring kDeep = L"/srv/docs/sub/deep/a_b%c.txt";
const std::wstring kOld = L"/srv/docs-old/report.txt";
const std::wstring kBeijing = L"/srv/docs/北京.txt";
const std::wstring kPhoto = L"/srv/photo.JPG";
const std::wstring kRoot = L"/root.pdf";

TEST_F(SearchCommand, GivesTheColumnsAsTheyAreNamed) {
    const auto one = [](const std::wstring& column) {
        const auto answer =
            RunSearch(L"SELECT " + column + L" FROM SystemIndex WHERE System.Author = 'ann müller'");
        EXPECT_EQ(answer.problem, L"");
        return answer.rows.empty() ? L"" : answer.rows.front();
    };
    const std::pair<std::wstring, std::wstring> cases[] = {
        {L"System.ItemUrl", L"file:/srv/docs/report.txt"},
        {L"System.ItemPathDisplay", L"/srv/docs/report.txt"},
        {L"System.ItemFolderPathDisplay", L"/srv/docs"},
        {L"System.ItemName", L"report.txt"},
        {L"system.filename", L"report.txt"},
        {L"\"System.ItemNameDisplay\"", L"report.txt"},
        {L"System.FileExtension, System.ItemType", L".txt|.txt"},
        {L"System.Kind", L"document"},
        {L"System.Title, System.Author", L"Annual Report|Ann Müller"},
        {L"System.Size", L"1000"},
        {L"System.DateModified", L"2020-05-17T10:20:30Z"},
        {L"System.Search.Rank", L"0"},
        {L"System.Search.AutoSummary", L"The quick brown fox jumps over the lazy dog"},
    };
    for (const auto& [column, value] : cases) EXPECT_EQ(one(column), value) << testing::PrintToString(column);

    EXPECT_THAT(RunSearch(L"SELECT System.ItemUrl, System.ItemFolderPathDisplay, System.Title, System.Author "
                          L"FROM SystemIndex WHERE System.ItemName = 'root.pdf'")
                    .rows,
                ElementsAre(L"file:/root.pdf|/|NULL|NULL"));
    EXPECT_THAT(RunSearch(L"SELECT System.Search.AutoSummary, System.DateModified FROM SystemIndex WHERE "
                          L"System.FileName = 'photo.jpg' OR System.Author = 'Bob' ORDER BY System.FileName")
                    .rows,
                ElementsAre(L"brown bears hunt; quick foxes hide, said O'Brien|1969-12-31T23:59:59Z",
                            L"NULL|1970-01-01T00:00:00Z"));

    CComPtr<IOpenRowset> session;
    CComPtr<ICommand> command;
    CComPtr<IRowset> rowset;
    CComPtr<IColumnsInfo> info;
    ASSERT_EQ(OpenSearchSession(session), S_OK);
    ASSERT_EQ(
        MakeCommand(session, L"SELECT system.ITEMURL, \"System.Size\", System.Search.Rank FROM SystemIndex",
                    command),
        S_OK);
    ASSERT_EQ(Execute(command, rowset), S_OK);
    EXPECT_THAT(TypesOf(rowset), ElementsAre(DBTYPE_WSTR, DBTYPE_I8, DBTYPE_I4));
    ASSERT_EQ(rowset.QueryInterface(info), S_OK);
    std::size_t count = 0;
    DBCOLUMNINFO* columns = nullptr;
    wchar_t* names = nullptr;
    ASSERT_EQ(info->GetColumnInfo(&count, &columns, &names), S_OK);
    EXPECT_STREQ(columns[0].pwszName, L"system.ITEMURL");
    EXPECT_STREQ(columns[1].pwszName, L"System.Size");
    CoTaskMemFree(columns);
    CoTaskMemFree(names);
}

TEST_F(SearchCommand, FindsWords) {
    const std::pair<std::wstring, std::vector<std::wstring>> cases[] = {
        {L"CONTAINS('fox')", {kReport}},
        {L"CONTAINS('FOX')", {kReport}},
        {L"CONTAINS('fo*')", {kReport, kDeep, kNotes}},
        {L"CONTAINS('\"quick bro*\"')", {kOld, kReport}},
        {L"CONTAINS('\"brown fox\"')", {kReport}},
        {L"CONTAINS('\"fox brown\"')", {}},
        {L"CONTAINS('quick brown')", {kOld, kReport, kNotes}},
        {L"CONTAINS('quick and (rabbit or bears)')", {kOld, kNotes}},
        {L"CONTAINS('quick AND NOT fox')", {kOld, kNotes}},
        {L"CONTAINS('quick & !!! & brown')", {kOld, kReport, kNotes}},
        {L"CONTAINS('NOT quick')", {kRoot, kDeep, kBeijing, kPhoto}},
        {L"CONTAINS('fox NEAR lazy')", {kReport}},
        {L"CONTAINS('foo-bar')", {kDeep}},
        {L"CONTAINS('o''brien')", {kNotes}},
        {L"CONTAINS('北京')", {kBeijing}},
        {L"CONTAINS('北')", {kBeijing}},
        {L"CONTAINS('京北')", {}},
        {L"CONTAINS('muller')", {kReport}},
        {L"CONTAINS('report')", {kOld, kReport}},
        {L"CONTAINS(*, 'report')", {kOld, kReport}},
        {L"CONTAINS(System.Title, 'report')", {kReport}},
        {L"CONTAINS((System.Title, System.Author), 'report OR bob')", {kReport, kNotes}},
        {L"CONTAINS(System.FileName, 'notes')", {kNotes}},
        {L"CONTAINS(System.Search.Contents, 'report')", {}},
        {L"CONTAINS('docs')", {}},
        {L"CONTAINS('!!!')", {}},
        {L"CONTAINS('')", {}},
        {L"NOT CONTAINS('!!!') AND System.Size < 25", {kBeijing, kPhoto}},
        {L"FREETEXT('fox rabbit ''!')", {kOld, kReport}},
        {L"FREETEXT(System.Author, 'ann bob fox')", {kReport, kNotes}},
        {L"FREETEXT('天安门 bears')", {kNotes, kBeijing}},
        {L"CONTAINS('fox') OR System.Size = 20", {kReport, kPhoto}},
        {L"CONTAINS('quick') AND NOT CONTAINS(System.Author, 'bob')", {kOld, kReport}},
        {L"NOT (CONTAINS('quick') OR System.Size < 100)", {kDeep}},
        {L"CONTAINS('content : fox')", {}},
        {L"CONTAINS('\"fox\" OR name')", {kReport}},
        {L"CONTAINS('^fox + jumps')", {kReport}},
    };
    for (const auto& [condition, names] : cases) {
        EXPECT_EQ(Names(condition), names) << testing::PrintToString(condition);
    }
}

TEST_F(SearchCommand, KeepsToFolders) {
    const std::vector<std::wstring> below = {kReport, kDeep, kNotes, kBeijing};
    const std::vector<std::wstring> all = {kRoot, kOld, kReport, kDeep, kNotes, kBeijing, kPhoto};
    const std::pair<std::wstring, std::vector<std::wstring>> cases[] = {
        {L"SCOPE = 'file:/srv/docs'", below},
        {L"SCOPE = 'file:\\srv\\docs\\'", below},
        {L"SCOPE = '/srv/docs/sub/..'", below},
        {L"SCOPE = '/'", all},
        {L"SCOPE = '/srv/docs/sub'", {kDeep, kNotes}},
        {L"SCOPE = '/srv/doc'", {}},
        {L"SCOPE = '/SRV/docs'", {}},
        {L"DIRECTORY = 'file:/srv/docs'", {kReport, kBeijing}},
        {L"DIRECTORY = '/'", {kRoot}},
        {L"SCOPE = '/srv' AND NOT SCOPE = '/srv/docs'", {kOld, kPhoto}},
        {L"DIRECTORY = '/' OR DIRECTORY = '/srv'", {kRoot, kPhoto}},
        {L"CONTAINS('quick') AND SCOPE = '/srv/docs'", {kReport, kNotes}},
        {L"CONTAINS('quick') AND SCOPE = '/'", {kOld, kReport, kNotes}},
        {L"CONTAINS('quick') AND DIRECTORY = '/srv/docs'", {kReport}},
        {L"CONTAINS('quick') AND NOT SCOPE = '/srv/docs'", {kOld}},
        {L"NOT DIRECTORY = '/nowhere' AND System.Size = 20", {kPhoto}},
    };
    for (const auto& [condition, names] : cases) {
        EXPECT_EQ(Names(condition), names) << testing::PrintToString(condition);
    }
}

TEST_F(SearchCommand, ComparesProperties) {
    const std::pair<std::wstring, std::vector<std::wstring>> cases[] = {
        {L"System.Size > 1000 AND System.Size <= 3000", {kOld, kNotes}},
        {L"System.Size >= 5000000000", {kDeep}},
        {L"System.Size IN (20, 30)", {kRoot, kPhoto}},
        {L"System.Size NOT IN (20, 30, 10) AND System.Size <> 1000", {kOld, kDeep, kNotes}},
        {L"System.Size < -1", {}},
        {L"System.Author = 'ANN MÜLLER'", {kReport}},
        {L"System.Author <> 'bob'", {kReport}},
        {L"System.Title IS NULL AND System.Author IS NOT NULL", {kNotes}},
        {L"System.ItemUrl IS NULL", {}},
        {L"System.FileExtension = '.TXT' AND System.Kind = 'document'", {kOld, kReport, kDeep, kBeijing}},
        {L"System.FileExtension = '.jpg'", {kPhoto}},
        {L"System.FileName LIKE 'R%'", {kRoot, kOld, kReport}},
        {L"System.FileName NOT LIKE '%.txt'", {kRoot, kNotes, kPhoto}},
        {L"System.Title LIKE '%[%] [[]sure]'", {kDeep}},
        {L"System.FileName LIKE '_[_]b%'", {kDeep}},
        {L"System.FileName LIKE '北_.txt'", {kBeijing}},
        {L"System.ItemUrl = 'file:/root.pdf'", {kRoot}},
        {L"System.ItemFolderPathDisplay = '/'", {kRoot}},
        {L"System.DateModified = '2020-05-17T10:20:30Z'", {kReport}},
        {L"System.DateModified > '2020-05-17 10:20:30'", {kOld}},
        {L"System.DateModified >= '2020-05-17' AND System.DateModified < '2020-05-18'", {kOld, kReport}},
        {L"System.DateModified <= '2020-05-17T10:20:30Z' AND System.DateModified > '1970-01-01'", {kReport}},
        {L"System.DateModified < '1970-01-01'", {kNotes}},
        {L"System.DateModified <> '1970-01-01'", {kOld, kReport, kNotes}},
        {L"System.DateModified > '9999-01-01' OR System.DateModified < '0001-01-02'", {}},
    };
    for (const auto& [condition, names] : cases) {
        EXPECT_EQ(Names(condition), names) << testing::PrintToString(condition);
    }
}

TEST_F(SearchCommand, SortsAndCuts) {
    const std::pair<std::wstring, std::vector<std::wstring>> cases[] = {
        {L"SELECT TOP 2 System.Size FROM SystemIndex ORDER BY System.Size DESC", {L"5000000000", L"3000"}},
        {L"SELECT TOP 0 System.Size FROM SystemIndex", {}},
        {L"SELECT TOP 3 System.ItemPathDisplay FROM SystemIndex", {kRoot, kPhoto, kReport}},
        {L"SELECT System.FileName, System.Size FROM SystemIndex WHERE SCOPE = '/srv/docs' OR "
         L"DIRECTORY = '/srv/docs-old' ORDER BY System.FileName ASC, System.Size DESC",
         {L"a_b%c.txt|5000000000", L"Notes.md|2000", L"report.txt|3000", L"report.txt|1000", L"北京.txt|10"}},
        {L"SELECT System.ItemPathDisplay FROM SystemIndex WHERE SCOPE = '/srv/docs'",
         {kReport, kBeijing, kNotes, kDeep}},
        {L"SELECT TOP 1 System.ItemPathDisplay FROM SystemIndex WHERE CONTAINS('quick OR rabbit') "
         L"ORDER BY System.Search.Rank DESC",
         {kOld}},
        {L"SELECT TOP 1 System.ItemPathDisplay FROM SystemIndex WHERE CONTAINS('quick OR rabbit')", {kOld}},
        {L"SELECT System.FileName FROM SystemIndex WHERE CONTAINS('brown') ORDER BY System.Author DESC",
         {L"Notes.md", L"report.txt", L"report.txt"}},
    };
    for (const auto& [command, rows] : cases) {
        const auto answer = RunSearch(command);
        EXPECT_EQ(answer.rows, rows) << testing::PrintToString(command);
        EXPECT_EQ(answer.problem, L"");
    }
    const auto ranks =
        RunSearch(L"SELECT System.Search.Rank FROM SystemIndex WHERE CONTAINS('rabbit OR quick')").rows;
    ASSERT_EQ(ranks.size(), 3U);
    for (const std::wstring& rank : ranks) {
        EXPECT_GE(std::stoi(rank), 1);
        EXPECT_LE(std::stoi(rank), 1000);
    }
    EXPECT_GT(std::stoi(ranks[0]), std::stoi(ranks[2]));
}

TEST(SearchRank, GrowsWithTheRelevance) {
    EXPECT_EQ(RankOf(0), 0);
    EXPECT_EQ(RankOf(1e-9), 1);
    EXPECT_LT(RankOf(3), RankOf(4));
    EXPECT_EQ(RankOf(1e9), 1000);
}

TEST_F(SearchCommand, ShowsTheWordsThatWereFound) {
    const auto summary = [](const std::wstring& condition) {
        const auto answer =
            RunSearch(L"SELECT System.Search.AutoSummary FROM SystemIndex WHERE " + condition);
        return answer.rows.size() == 1 ? answer.rows.front() : answer.problem;
    };
    EXPECT_EQ(summary(L"CONTAINS('\"brown fox\" AND la*')"),
              L"The quick \u2068brown fox\u2069 jumps over the \u2068lazy\u2069 dog");
    EXPECT_EQ(summary(L"CONTAINS('fox AND NOT bear') AND System.Size = 1000"),
              L"The quick brown \u2068fox\u2069 jumps over the lazy dog");
    EXPECT_EQ(SummaryOf("a\xE2\x81\xA8\x02"
                        "b\x03\xE2\x81\xA9 \xE2\x81\xAA"),
              "a\xE2\x81\xA8"
              "b\xE2\x81\xA9 \xE2\x81\xAA");
}

TEST_F(SearchCommand, RunsAtItsBounds) {
    const auto repeated = [](const std::wstring& text, std::size_t count) {
        std::wstring all;
        while (count-- != 0) all += text;
        return all;
    };
    using Bounds = CSearchBounds;
    const std::size_t most = Bounds::kNesting;
    const std::wstring commands[] = {
        // Each as deep, or as long, as the parser lets it be.
        repeated(L"NOT (System.Size > 1 OR System.Size = 0 AND ", most) + L"System.Size > 0" +
            repeated(L")", most),
        repeated(L"(System.Size > 1 OR System.Size < 0 AND ", most) + L"CONTAINS('fox')" +
            repeated(L")", most),
        repeated(L"NOT (CONTAINS('NOT fox') OR System.Size = 1 AND ", most - 1) + L"NOT CONTAINS('fox')" +
            repeated(L")", most - 1),
        L"CONTAINS('" + repeated(L"(fox OR bear AND ", most) + L"quick" + repeated(L")", most) + L"')",
        L"CONTAINS((System.Title, System.Author), '" + repeated(L"fox OR den AND NOT (bear AND ", most) +
            L"quick" + repeated(L")", most) + L"')",
        L"NOT CONTAINS(System.Title, '" + repeated(L"NOT (bear AND den OR fox AND ", most - 1) + L"quick" +
            repeated(L")", most - 1) + L"')",
        L"CONTAINS('" + repeated(L"a ", Bounds::kConditions) + L"')",
        L"CONTAINS('" + repeated(L"NOT a ", Bounds::kConditions) + L"')",
        L"CONTAINS('" + repeated(L"NOT a OR ", Bounds::kConditions - 1) + L"NOT b')",
        L"CONTAINS('\"" + repeated(L"a ", Bounds::kWords) + L"\"')",
        L"System.Size IN (1" + repeated(L", 1", Bounds::kConditions - 2) + L")",
        L"System.Size = 1" + repeated(L" OR System.Size = 1", Bounds::kConditions - 1),
    };
    for (const std::wstring& command : commands) {
        const auto answer = RunSearch(L"SELECT System.ItemUrl FROM SystemIndex WHERE " + command);
        EXPECT_EQ(answer.problem, L"") << testing::PrintToString(command.substr(0, 40));
    }
}

}  // namespace
}  // namespace quorbel
