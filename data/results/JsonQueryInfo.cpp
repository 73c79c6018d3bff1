#include "data/results/RowsetQueryInfo.h"

namespace quorbel {

namespace {

void AppendEscaped(std::wstring& text, std::wstring_view value) {
    for (const wchar_t character : value) {
        switch (character) {
            case L'\b': text += L"\\b"; break;
            case L'\t': text += L"\\t"; break;
            case L'\n': text += L"\\n"; break;
            case L'\f': text += L"\\f"; break;
            case L'"': text += L"\\\""; break;
            case L'\\': text += L"\\\\"; break;
            case L'\r': break;
            default: text += character; break;
        }
    }
}

void AppendValue(std::wstring& text, DBTYPE type, std::wstring_view value) {
    switch (type) {
        case DBTYPE_BSTR:
        case DBTYPE_STR:
        case DBTYPE_WSTR:
            text += L'"';
            AppendEscaped(text, value);
            text += L'"';
            break;
        // Truth comes as "True" or "False", cut to the two characters that are bound for it.
        case DBTYPE_BOOL: text += value == L"Tr" ? L"true" : L"false"; break;
        default: AppendEscaped(text, value); break;
    }
}

}  // namespace

HRESULT ResultStream<std::uint8_t>::JsonQueryInfo::Row(std::wstring& text) {
    const wchar_t* before = m_isFirst ? L"{\"" : L",{\"";
    const HRESULT result = FetchColumns([&](std::size_t column) {
        const DBSTATUS status = Values().Status(column);
        const bool isNull = status == DBSTATUS_S_ISNULL;
        if (!isNull && !HasValue(status)) return;
        text.append(std::exchange(before, L",\"")).append(Columns()[column].name).append(L"\":");
        if (isNull) {
            text += L"null";
        } else {
            AppendValue(text, Values().OutputType(column), ShownText(column));
        }
    });
    if (result != S_OK) return result;
    if (text.empty()) text = m_isFirst ? L"{" : L",{";
    text += L'}';
    m_isFirst = false;
    return S_OK;
}

}  // namespace quorbel
