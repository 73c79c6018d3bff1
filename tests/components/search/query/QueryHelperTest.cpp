#include <gmock/gmock.h>

#include "tests/components/search/query/SearchFixture.h"

namespace quorbel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class QueryHelper : public CSearchFixture {
 protected:
    const CComPtr<ISearchQueryHelper> helper = MakeQueryHelper();
};

TEST_F(QueryHelper, MakesCommandsOfItsSettings) {
    EXPECT_EQ(CommandFor(helper, L"fox"),
              L"SELECT System.ItemUrl FROM SystemIndex WHERE (CONTAINS('\"fox\"')) "
              L"ORDER BY System.Search.Rank DESC");
    EXPECT_EQ(helper->put_QuerySyntax(SearchQuerySyntax::Natural), S_OK);
    EXPECT_EQ(helper->put_QueryContentProperties(L"system.title , System.Author"), S_OK);
    EXPECT_EQ(helper->put_QuerySelectColumns(L"System.ItemUrl,\"System.Title\""), S_OK);
    EXPECT_EQ(helper->put_QuerySorting(L"System.Size desc, System.FileName"), S_OK);
    EXPECT_EQ(helper->put_QueryMaxResults(10), S_OK);
    EXPECT_EQ(helper->put_QueryWhereRestrictions(L"AND SCOPE = 'file:/srv/docs'"), S_OK);
    EXPECT_EQ(CommandFor(helper, L"fox or bear"),
              L"SELECT TOP 10 System.ItemUrl, System.Title FROM SystemIndex WHERE "
              L"(CONTAINS((system.title, System.Author), '\"fox\" OR \"bear\"')) "
              L"AND SCOPE = 'file:/srv/docs' ORDER BY System.Size desc, System.FileName");
    for (const auto setter :
         {&ISearchQueryHelper::put_QueryContentProperties, &ISearchQueryHelper::put_QuerySelectColumns,
          &ISearchQueryHelper::put_QuerySorting, &ISearchQueryHelper::put_QueryWhereRestrictions}) {
        EXPECT_EQ((helper.Get()->*setter)(L" "), S_OK);
        EXPECT_EQ((helper.Get()->*setter)(nullptr), S_OK);
    }
    EXPECT_EQ(helper->put_QueryMaxResults(-1), S_OK);
    EXPECT_EQ(CommandFor(helper, L"*"),
              L"SELECT System.ItemUrl FROM SystemIndex WHERE (System.ItemUrl IS NOT NULL) "
              L"ORDER BY System.Search.Rank DESC");
    wchar_t* initialisation = nullptr;
    ASSERT_EQ(helper->get_ConnectionString(&initialisation), S_OK);
    EXPECT_STREQ(initialisation, L"Provider=Quorbel.SearchProvider");
    CoTaskMemFree(initialisation);
}

TEST_F(QueryHelper, RefusesWhatIsNotMeantForASetting) {
    using Setter = HRESULT (ISearchQueryHelper::*)(const wchar_t*);
    const std::pair<Setter, std::wstring> cases[] = {
        {&ISearchQueryHelper::put_QuerySelectColumns, L"System.Secret"},
        {&ISearchQueryHelper::put_QuerySelectColumns, L"System.ItemUrl,"},
        {&ISearchQueryHelper::put_QuerySelectColumns, L"System.ItemUrl FROM SystemIndex --"},
        {&ISearchQueryHelper::put_QuerySelectColumns, L"System.Search.Contents"},
        {&ISearchQueryHelper::put_QuerySelectColumns, L"*"},
        {&ISearchQueryHelper::put_QuerySelectColumns, std::wstring(200'000, L',')},
        {&ISearchQueryHelper::put_QueryContentProperties, L"System.Size"},
        {&ISearchQueryHelper::put_QueryContentProperties, L"System.Title), 'x') OR (System.Size"},
        {&ISearchQueryHelper::put_QuerySorting, L"System.Size; DROP TABLE words"},
        {&ISearchQueryHelper::put_QuerySorting, L"System.Size UP"},
        {&ISearchQueryHelper::put_QuerySorting, L"1"},
        {&ISearchQueryHelper::put_QueryWhereRestrictions, L"SCOPE = '/srv'"},
        {&ISearchQueryHelper::put_QueryWhereRestrictions, L"AND SCOPE = '/srv' ORDER BY System.Size"},
        {&ISearchQueryHelper::put_QueryWhereRestrictions, L"AND SCOPE = '/srv') OR (System.Size > 0"},
        {&ISearchQueryHelper::put_QueryWhereRestrictions, L"AND SCOPE = 'srv'"},
    };
    const std::wstring before = CommandFor(helper, L"fox");
    for (const auto& [setter, value] : cases) {
        EXPECT_EQ((helper.Get()->*setter)(value.c_str()), E_INVALIDARG) << testing::PrintToString(value);
        EXPECT_NE(TakeErrorInfo(), L"");
    }
    EXPECT_EQ(helper->put_QuerySyntax(static_cast<SearchQuerySyntax>(3)), E_INVALIDARG);
    EXPECT_EQ(CommandFor(helper, L"fox"), before) << "a refused setting changes nothing";
}

TEST_F(QueryHelper, LetsNoQueryOutOfItsScope) {
    Put({{"/srv/docs", "in.txt", "fox bear den", "Fox"}, {"/srv/secret", "out.txt", "fox bear den", "Fox"}});
    ASSERT_EQ(helper->put_QueryWhereRestrictions(L"AND SCOPE = 'file:/srv/docs'"), S_OK);
    const std::wstring queries[] = {
        L"fox",
        L"*",
        L"-cat",
        L"NOT cat OR den",
        L"fox OR bear",
        L"a OR *",
        L"') OR SCOPE = '/srv/secret' OR CONTAINS('fox",
        L"fox') OR (1=1",
        L"fox\") OR SCOPE=\"/srv/secret",
        L"fox) OR (bear",
        L"fox' OR 'bear",
        L"fox -- ",
        L"fox /* ",
        L"title:\"fox')) OR ((CONTAINS('den\"",
        L"ext:txt' OR kind:document' OR fox",
        L"ext:txt OR fox",
        L"size:>=0 OR size:<0",
        L"-size:7",
        L"date:..2100 OR fox",
        L"fox\n\t\vOR\u2028den",
        L"SCOPE:/srv/secret OR fox",
        L"file:/srv/secret OR den",
        L"\\ OR fox",
    };
    for (const auto syntax :
         {SearchQuerySyntax::None, SearchQuerySyntax::Advanced, SearchQuerySyntax::Natural}) {
        ASSERT_EQ(helper->put_QuerySyntax(syntax), S_OK);
        for (const std::wstring& query : queries) {
            const auto answer = RunSearch(CommandFor(helper, query));
            EXPECT_EQ(answer.problem, L"") << testing::PrintToString(query);
            for (const std::wstring& row : answer.rows) EXPECT_EQ(row, L"file:/srv/docs/in.txt");
            const bool mustFind = query == L"fox" || query == L"*";
            EXPECT_TRUE(!mustFind || answer.rows.size() == 1U);
        }
    }
}

TEST_F(QueryHelper, FindsWhatUsersAskFor) {
    Put({{"/srv/foxes", "a.txt", "The quick brown fox", "Den", "Ann", 2'000'000, 1'600'000'000'000'000'000},
         {"/srv/foxes", "b.pdf", "A bear's den; foxes", "", "", 10, 0}});
    const std::pair<std::wstring, std::vector<std::wstring>> cases[] = {
        {L"fox", {L"file:/srv/foxes/a.txt"}},
        {L"foxes", {L"file:/srv/foxes/b.pdf"}},
        {L"fox* -author:ann", {L"file:/srv/foxes/b.pdf"}},
        {L"title:den", {L"file:/srv/foxes/a.txt"}},
        {L"den size:>1MB date:2020", {L"file:/srv/foxes/a.txt"}},
        {L"ext:pdf OR nothing", {L"file:/srv/foxes/b.pdf"}},
        {L"\"bear den\"", {}},
        {L"\"bear's den\"", {L"file:/srv/foxes/b.pdf"}},
        {L"!!!", {}},
        {L"srv", {}},
    };
    for (const auto& [query, rows] : cases) {
        EXPECT_EQ(RunSearch(CommandFor(helper, query)).rows, rows) << testing::PrintToString(query);
    }
}

TEST_F(QueryHelper, KnowsOneCatalogue) {
    CComPtr<ISearchManager> manager;
    CComPtr<ISearchCatalogManager> catalog;
    ASSERT_EQ(CreateComInstance(kSearchManagerClass, manager), S_OK);
    EXPECT_EQ(manager->GetCatalog(L"Other", catalog.Receive()), E_INVALIDARG);
    EXPECT_EQ(manager->GetCatalog(nullptr, catalog.Receive()), E_INVALIDARG);
    EXPECT_EQ(manager->GetCatalog(L"SystemIndex", catalog.Receive()), S_OK);
}

}  // namespace
}  // namespace quorbel
