#pragma once

#include <cstdint>

#include "platform/com/Com.h"

namespace quorbel {

/// How the text of a user's query is read.
enum class SearchQuerySyntax : std::int32_t {
    None = 0,      ///< every word is a word: nothing in the text has a meaning of its own
    Advanced = 1,  ///< words, "phrases", prefix*, AND, OR, NOT, parentheses, property:value, <, >, ranges
    Natural = 2    ///< as Advanced, with operators and properties also in everyday words ("and", "from:")
};

/// Turns what a user typed into a command for the search provider. One thread at a time. Texts that it gives
/// are freed with CoTaskMemFree; descriptions of failures are left in platform/com/ErrorInfo.h.
class ISearchQueryHelper : public IUnknown {
 public:
    static constexpr GUID kId{0x1E6B2B0D, 0x53C1, 0x4B1F, {0xA6, 0x5B, 0x0C, 0x6A, 0x40, 0x5E, 0x92, 0x17}};
    /// The initialisation string of the data source that runs the commands.
    virtual HRESULT get_ConnectionString(wchar_t** initialisation) = 0;
    /// E_INVALIDARG for a number that is no syntax. Advanced unless set.
    virtual HRESULT put_QuerySyntax(SearchQuerySyntax syntax) = 0;
    /// The properties, separated by commas, in which words without a property are looked for; content, title,
    /// author and file name unless set. E_INVALIDARG for a property that has no words.
    virtual HRESULT put_QueryContentProperties(const wchar_t* properties) = 0;
    /// The columns of the command, separated by commas; "System.ItemUrl" unless set.
    virtual HRESULT put_QuerySelectColumns(const wchar_t* columns) = 0;
    /// What follows ORDER BY in the command; "System.Search.Rank DESC" unless set.
    virtual HRESULT put_QuerySorting(const wchar_t* sorting) = 0;
    /// Rows at most; 0 or less for all.
    virtual HRESULT put_QueryMaxResults(std::int32_t count) = 0;
    /// Follows the query's own condition in the command as it is, so that it begins with AND or OR.
    virtual HRESULT put_QueryWhereRestrictions(const wchar_t* restrictions) = 0;
    /// The command for a query; "*" and nothing but blanks stand for every document.
    virtual HRESULT GenerateSQLFromUserQuery(const wchar_t* query, wchar_t** command) = 0;
};

class ISearchCatalogManager : public IUnknown {
 public:
    static constexpr GUID kId{0x7A0C4E55, 0x92D3, 0x4C0E, {0xB1, 0x0F, 0x3D, 0x6E, 0x8A, 0x71, 0x25, 0xC4}};
    /// A new query helper with nothing set.
    virtual HRESULT GetQueryHelper(ISearchQueryHelper** helper) = 0;
};

/// The way to catalogues; from any thread.
class ISearchManager : public IUnknown {
 public:
    static constexpr GUID kId{0xC2D85D1F, 0x0B64, 0x4E0A, {0x8F, 0x7A, 0x51, 0x9E, 0x30, 0xBC, 0x44, 0x0A}};
    /// "SystemIndex", without regard to case; E_INVALIDARG for any other name.
    virtual HRESULT GetCatalog(const wchar_t* name, ISearchCatalogManager** catalog) = 0;
};

/// The class of the component that implements ISearchManager.
inline constexpr GUID kSearchManagerClass{
    0x5D0F6C1A, 0xE3B8, 0x4A57, {0x9C, 0x21, 0x68, 0x0B, 0x7D, 0xF1, 0x3E, 0x92}};

}  // namespace quorbel
