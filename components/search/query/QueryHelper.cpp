#include "components/search/query/QueryHelper.h"

#include "components/oledb/ComBorder.h"
#include "components/search/query/CommandParser.h"
#include "components/search/query/SearchBounds.h"
#include "components/search/query/SearchProvider.h"
#include "components/search/query/UserQueryParser.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

using Source = CSearchProperty::Source;

HRESULT Refuse(std::wstring description) {
    SetErrorInfo(std::move(description));
    return E_INVALIDARG;
}

HRESULT Refuse(std::wstring_view what, const CSyntaxError& error) {
    return Refuse(std::wstring(what) + L" cannot be used: " + error.Text());
}

HRESULT Give(const std::wstring& text, wchar_t** given) {
    *given = static_cast<wchar_t*>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
    if (!*given) return E_OUTOFMEMORY;
    (*given)[text.copy(*given, text.size())] = L'\0';
    return S_OK;
}

std::wstring_view WithoutBlanks(const wchar_t* text) noexcept {
    return Trim(text ? text : L"");
}

/// The properties that a list names, as the table writes them; what `isFit` refuses is none.
template <class IsFit>
HRESULT ReadList(std::wstring_view list, IsFit&& isFit, std::wstring& properties) {
    if (list.size() > CSearchBounds::kCharacters) return Refuse(L"The list of columns is too long.");
    std::wstring read;
    for (std::size_t count = 0;; ++count) {
        const std::size_t comma = list.find(L',');
        std::wstring_view name = Trim(list.substr(0, comma));
        const bool isQuoted = name.size() > 1 && name.front() == L'"' && name.back() == L'"';
        if (isQuoted) name = name.substr(1, name.size() - 2);
        const CSearchProperty* const property = FindSearchProperty(name);
        if (!property || !isFit(*property) || count == CSearchBounds::kColumns) {
            return Refuse(L"The list of columns cannot hold \"" + std::wstring(name) + L"\".");
        }
        // Consumers find a column by the name that they asked for.
        read += (read.empty() ? L"" : L", ") + std::wstring(name);
        if (comma == std::wstring_view::npos) break;
        list.remove_prefix(comma + 1);
    }
    properties = std::move(read);
    return S_OK;
}

}  // namespace

HRESULT CSearchQueryHelper::get_ConnectionString(wchar_t** initialisation) {
    if (!initialisation) return E_POINTER;
    *initialisation = nullptr;
    return AtBorder([&] { return Give(L"Provider=" + std::wstring(kSearchProviderName), initialisation); });
}

HRESULT CSearchQueryHelper::put_QuerySyntax(SearchQuerySyntax syntax) {
    switch (syntax) {
        case SearchQuerySyntax::None:
        case SearchQuerySyntax::Advanced:
        case SearchQuerySyntax::Natural: m_syntax = syntax; return S_OK;
    }
    return AtBorder([] { return Refuse(L"There is no such query syntax."); });
}

HRESULT CSearchQueryHelper::put_QueryContentProperties(const wchar_t* properties) {
    return AtBorder([&] {
        const std::wstring_view list = WithoutBlanks(properties);
        if (!list.empty()) {
            return ReadList(
                list, [](const CSearchProperty& property) { return !property.words.empty(); },
                m_contentProperties);
        }
        m_contentProperties.clear();
        return S_OK;
    });
}

HRESULT CSearchQueryHelper::put_QuerySelectColumns(const wchar_t* columns) {
    return AtBorder([&] {
        const std::wstring_view list = WithoutBlanks(columns);
        return ReadList(
            list.empty() ? L"System.ItemUrl" : list,
            [](const CSearchProperty& property) { return property.source != Source::Nothing; }, m_columns);
    });
}

HRESULT CSearchQueryHelper::put_QuerySorting(const wchar_t* sorting) {
    return AtBorder([&] {
        const std::wstring_view wanted = WithoutBlanks(sorting);
        const std::wstring text(wanted.empty() ? L"System.Search.Rank DESC" : wanted);
        if (const auto error = CheckSorting(text)) return Refuse(L"The sorting", *error);
        m_sorting = text;
        return S_OK;
    });
}

HRESULT CSearchQueryHelper::put_QueryMaxResults(std::int32_t count) {
    m_mostResults = count;
    return S_OK;
}

HRESULT CSearchQueryHelper::put_QueryWhereRestrictions(const wchar_t* restrictions) {
    return AtBorder([&] {
        const std::wstring text(WithoutBlanks(restrictions));
        if (!text.empty()) {
            if (const auto error = CheckRestriction(text)) return Refuse(L"The restriction", *error);
        }
        m_restrictions = text;
        return S_OK;
    });
}

HRESULT CSearchQueryHelper::GenerateSQLFromUserQuery(const wchar_t* query, wchar_t** command) {
    if (!command) return E_POINTER;
    *command = nullptr;
    return AtBorder([&] {
        auto parsed = CUserQueryParser::Parse(query ? query : L"", m_syntax, m_contentProperties);
        if (!parsed.problem.empty()) return Refuse(std::move(parsed.problem));
        std::wstring text = L"SELECT ";
        if (m_mostResults > 0) text += L"TOP " + std::to_wstring(m_mostResults) + L" ";
        text += m_columns + L" FROM SystemIndex WHERE (" + parsed.condition + L")";
        if (!m_restrictions.empty()) text += L" " + m_restrictions;
        text += L" ORDER BY " + m_sorting;
        const auto checked = ParseSearchCommand(text);
        if (const auto* const error = std::get_if<CSyntaxError>(&checked)) {
            return Refuse(L"The query with its restriction", *error);
        }
        return Give(text, command);
    });
}

}  // namespace quorbel
