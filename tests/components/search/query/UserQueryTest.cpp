#include "components/search/query/SearchBounds.h"
#include "components/search/query/UserQueryParser.h"

namespace quorbel {
namespace {

using Syntax = SearchQuerySyntax;

struct CCase {
    std::wstring query;
    std::wstring condition;
};

void Check(Syntax syntax, const std::vector<CCase>& cases) {
    for (const auto& [query, condition] : cases) {
        const auto read = CUserQueryParser::Parse(query, syntax, L"");
        EXPECT_EQ(read.condition, condition) << testing::PrintToString(query);
        EXPECT_EQ(read.problem, L"");
    }
}

TEST(UserQuery, ReadsWhatTheAdvancedSyntaxSays) {
    Check(Syntax::Advanced,
          {{L"fox", LR"(CONTAINS('"fox"'))"},
           {L"quick fox", LR"(CONTAINS('"quick" AND "fox"'))"},
           {L"\"quick fox\"", LR"(CONTAINS('"quick fox"'))"},
           {L"“quick fox” den", LR"(CONTAINS('"quick fox" AND "den"'))"},
           {L"fo*", LR"(CONTAINS('"fo*"'))"},
           {L"\"quick fo\"* den", LR"(CONTAINS('"quick fo*" AND "den"'))"},
           {L"fox OR bear den", LR"(CONTAINS('"fox" OR ("bear" AND "den")'))"},
           {L"(fox OR bear) den", LR"(CONTAINS('("fox" OR "bear") AND "den"'))"},
           {L"fox -bear", LR"(CONTAINS('"fox" AND NOT "bear"'))"},
           {L"fox NOT bear", LR"(CONTAINS('"fox" AND NOT "bear"'))"},
           {L"fox AND NOT (bear OR den)", LR"(CONTAINS('"fox" AND NOT ("bear" OR "den")'))"},
           {L"NOT -fox", LR"(CONTAINS('"fox"'))"},
           {L"fox and bear or den", LR"(CONTAINS('"fox" AND "and" AND "bear" AND "or" AND "den"'))"},
           {L"foo-bar", LR"(CONTAINS('"foo-bar"'))"},
           {L"O'Brien", LR"(CONTAINS('"O''Brien"'))"},
           {L"北京 天安门", LR"(CONTAINS('"北京" AND "天安门"'))"},
           {L"title:fox", LR"(CONTAINS(System.Title, '"fox"'))"},
           {L"Title: \"quick fox\" den", LR"(CONTAINS(System.Title, '"quick fox"') AND CONTAINS('"den"'))"},
           {L"title:(fox OR bear*)", LR"(CONTAINS(System.Title, '"fox" OR "bear*"'))"},
           {L"-title:fox", LR"(CONTAINS(System.Title, 'NOT "fox"'))"},
           {L"author:ann content:fox name:a.txt",
            LR"(CONTAINS(System.Author, '"ann"') AND CONTAINS(System.Search.Contents, '"fox"') AND )"
            LR"(CONTAINS(System.FileName, '"a.txt"'))"},
           {L"title:* name:*", L"System.Title IS NOT NULL"},
           {L"fox *", LR"(CONTAINS('"fox"'))"},
           {L"kind:Pictures", L"System.Kind = 'picture'"},
           {L"kind:(photo OR mail)", L"System.Kind = 'picture' OR System.Kind = 'email'"},
           {L"ext:pdf", L"System.FileExtension = '.pdf'"},
           {L"type:.doc*", L"System.FileExtension LIKE '.doc%'"},
           {L"ext:_%*", L"System.FileExtension LIKE '.[_][%]%'"},
           {L"fox (ext:pdf OR ext:txt)",
            LR"(CONTAINS('"fox"') AND (System.FileExtension = '.pdf' OR System.FileExtension = '.txt'))"}});
}

TEST(UserQuery, ReadsSizesAndDates) {
    Check(
        Syntax::Advanced,
        {{L"size:>1MB", L"System.Size >= 1048577"},
         {L"size>1mb", L"System.Size >= 1048577"},
         {L"size: >= 1.5k", L"System.Size >= 1536"},
         {L"size:<10KB", L"System.Size < 10240"},
         {L"size:<=100", L"System.Size < 101"},
         {L"size:10KB..2MB", L"(System.Size >= 10240 AND System.Size < 2097153)"},
         {L"size:..2MB", L"System.Size < 2097153"},
         {L"size:7", L"(System.Size >= 7 AND System.Size < 8)"},
         {L"date:2020", L"(System.DateModified >= '2020-01-01' AND System.DateModified < '2021-01-01')"},
         {L"date:2020-12", L"(System.DateModified >= '2020-12-01' AND System.DateModified < '2021-01-01')"},
         {L"modified:2020-02-29",
          L"(System.DateModified >= '2020-02-29' AND System.DateModified < '2020-03-01')"},
         {L"date:>2019", L"System.DateModified >= '2020-01-01'"},
         {L"date:>=2020-01-01", L"System.DateModified >= '2020-01-01'"},
         {L"date:<2020-05", L"System.DateModified < '2020-05-01'"},
         {L"date<=2020-05", L"System.DateModified < '2020-06-01'"},
         {L"date:2019..2021",
          L"(System.DateModified >= '2019-01-01' AND System.DateModified < '2022-01-01')"},
         {L"date:2019-03..", L"System.DateModified >= '2019-03-01'"},
         {L"-size:>1MB", L"NOT System.Size >= 1048577"},
         {L"-date:2020", L"NOT (System.DateModified >= '2020-01-01' AND System.DateModified < '2021-01-01')"},
         {L"size:(>1KB <2KB)", L"System.Size >= 1025 AND System.Size < 2048"}});
}

TEST(UserQuery, MakesTheBestOfSloppyTexts) {
    const std::wstring every(kEveryDocument);
    const std::wstring none(kNoDocumentMatches);
    Check(Syntax::Advanced,
          {{L"", every},
           {L"  \t ", every},
           {L"*", every},
           {L" * ", every},
           {L"* **", every},
           {L"\"quick fox", LR"(CONTAINS('"quick fox"'))"},
           {L"fox\"bear", LR"(CONTAINS('"fox" AND "bear"'))"},
           {L"(fox", LR"(CONTAINS('"fox"'))"},
           {L"((fox OR bear", LR"(CONTAINS('"fox" OR "bear"'))"},
           {L"fox)", LR"(CONTAINS('"fox"'))"},
           {L"fox) bear", LR"(CONTAINS('"fox" AND "bear"'))"},
           {L")))(((", none},
           {L"() fox", LR"(CONTAINS('"fox"'))"},
           {L"fox AND", LR"(CONTAINS('"fox"'))"},
           {L"OR fox OR OR bear AND", LR"(CONTAINS('"fox" OR "bear"'))"},
           {L"AND", LR"(CONTAINS('"AND"'))"},
           {L"NOT", LR"(CONTAINS('"NOT"'))"},
           {L"-", none},
           {L"fox - bear", LR"(CONTAINS('"fox" AND "bear"'))"},
           {L"fox -", LR"(CONTAINS('"fox"'))"},
           {L"(fox -)", LR"(CONTAINS('"fox"'))"},
           {L"--fox", LR"(CONTAINS('NOT "fox"'))"},
           {L"fox -!!! \"\" \"--\"", LR"(CONTAINS('"fox"'))"},
           {L"!?&|'", none},
           {L"fox & bear", LR"(CONTAINS('"fox" AND "bear"'))"},
           {L"colour:red", LR"(CONTAINS('"colour:red"'))"},
           {L"http://host/path", LR"(CONTAINS('"http://host/path"'))"},
           {L"size:big", LR"(CONTAINS('"size:big"'))"},
           {L"size:99999999999999999999TB", LR"(CONTAINS('"size:99999999999999999999TB"'))"},
           {L"date:2020-13", LR"(CONTAINS('"date:2020-13"'))"},
           {L"date:2021-02-29", LR"(CONTAINS('"date:2021-02-29"'))"},
           {L"title:", LR"(CONTAINS('"title:"'))"},
           {L"(size:) fox", LR"(CONTAINS('"size:" AND "fox"'))"},
           {L"title:(fox", LR"(CONTAINS(System.Title, '"fox"'))"},
           {L"c++", LR"(CONTAINS('"c++"'))"},
           {L"fo*o", LR"(CONTAINS('"fo*o"'))"},
           {L"from:ann", LR"(CONTAINS('"from:ann"'))"}});
}

TEST(UserQuery, ReadsEverydayWordsInTheNaturalSyntax) {
    Check(Syntax::Natural,
          {{L"fox and bear or not den", LR"(CONTAINS('("fox" AND "bear") OR NOT "den"'))"},
           {L"from:ann by:bob", LR"(CONTAINS(System.Author, '"ann" AND "bob"'))"},
           {L"called:report fox", LR"(CONTAINS(System.FileName, '"report"') AND CONTAINS('"fox"'))"},
           {L"and", LR"(CONTAINS('"and"'))"}});
}

TEST(UserQuery, KnowsOnlyWordsWithoutASyntax) {
    Check(Syntax::None, {{L"fox OR (bear", LR"(CONTAINS('"fox" AND "OR" AND "(bear"'))"},
                         {L"-fox title:a \"b", LR"(CONTAINS('"-fox" AND "title:a" AND " b"'))"},
                         {L"fo* *", LR"(CONTAINS('"fo"'))"},
                         {L"*", std::wstring(kEveryDocument)},
                         {L"...", std::wstring(kNoDocumentMatches)}});
}

TEST(UserQuery, LooksInTheGivenColumns) {
    const std::wstring columns = L"System.Title, System.Author";
    EXPECT_EQ(CUserQueryParser::Parse(L"fox title:bear", Syntax::Advanced, columns).condition,
              LR"(CONTAINS((System.Title, System.Author), '"fox"') AND CONTAINS(System.Title, '"bear"'))");
    EXPECT_EQ(CUserQueryParser::Parse(L"fox", Syntax::None, L"System.Title").condition,
              LR"(CONTAINS(System.Title, '"fox"'))");
}

std::wstring Repeated(std::wstring_view text, std::size_t count) {
    std::wstring all;
    while (count-- != 0) all += text;
    return all;
}

TEST(UserQuery, IsBounded) {
    using Bounds = CUserQueryBounds;
    const std::pair<std::wstring, std::wstring> cases[] = {
        {Repeated(L"(", Bounds::kNesting) + L"fox", L""},
        {Repeated(L"(", Bounds::kNesting + 1) + L"fox", L"The query's parentheses are nested too deeply."},
        {Repeated(L"-(", Bounds::kNesting) + L"fox", L""},
        {Repeated(L"title:(", 500), L"The query's parentheses are nested too deeply."},
        {Repeated(L"a ", Bounds::kTerms), L""},
        {Repeated(L"a ", Bounds::kTerms + 1), L"The query has too many words."},
        {Repeated(L"ext:a ", Bounds::kTerms + 1), L"The query has too many words."},
        {Repeated(L"北", Bounds::kWords), L""},
        {Repeated(L"北", Bounds::kWords + 1), L"The query has too many words."},
        {Repeated(L"a", Bounds::kCharacters + 1), L"The query is too long."},
        {Repeated(L"a ", 100'000), L"The query is too long."},
        {Repeated(L")", Bounds::kCharacters), L""},
        {Repeated(L"-", Bounds::kCharacters), L""},
        {Repeated(L"NOT ", Bounds::kCharacters / 4), L"The query has too many words."},
        {Repeated(L"\"", Bounds::kCharacters), L""},
    };
    for (const auto& [query, problem] : cases) {
        for (const Syntax syntax : {Syntax::Advanced, Syntax::Natural}) {
            EXPECT_EQ(CUserQueryParser::Parse(query, syntax, L"").problem, problem)
                << testing::PrintToString(query.substr(0, 20));
        }
    }
}

}  // namespace
}  // namespace quorbel
