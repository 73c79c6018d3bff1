#pragma once

#include <string>

#include "components/search/SearchManager.h"

namespace quorbel {

/// Turns users' queries into commands, see docs/search-queries.md.
class CSearchQueryHelper final : public CComObject<ISearchQueryHelper> {
 public:
    HRESULT get_ConnectionString(wchar_t** initialisation) override;
    HRESULT put_QuerySyntax(SearchQuerySyntax syntax) override;
    HRESULT put_QueryContentProperties(const wchar_t* properties) override;
    HRESULT put_QuerySelectColumns(const wchar_t* columns) override;
    HRESULT put_QuerySorting(const wchar_t* sorting) override;
    HRESULT put_QueryMaxResults(std::int32_t count) override;
    HRESULT put_QueryWhereRestrictions(const wchar_t* restrictions) override;
    HRESULT GenerateSQLFromUserQuery(const wchar_t* query, wchar_t** command) override;

 private:
    SearchQuerySyntax m_syntax = SearchQuerySyntax::Advanced;
    std::wstring m_contentProperties;  // empty for all columns of words
    std::wstring m_columns = L"System.ItemUrl";
    std::wstring m_sorting = L"System.Search.Rank DESC";
    std::wstring m_restrictions;
    std::int32_t m_mostResults = 0;
};

}  // namespace quorbel
