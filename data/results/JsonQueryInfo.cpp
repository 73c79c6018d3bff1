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
    return Fetch([&] {
        AppendRow(text);
        return S_OK;
    });
}

void ResultStream<std::uint8_t>::JsonQueryInfo::AppendRow(std::wstring& text) {
    text += std::exchange(m_isFirst, false) ? L"{" : L",{";
    const wchar_t* separator = L"\"";
    for (std::size_t column = 0; column != Columns().size(); ++column) {
        if (Columns()[column].info.iOrdinal == 0) continue;
        const DBSTATUS status = Values().Status(column);
        const bool isNull = status == DBSTATUS_S_ISNULL;
        if (!isNull && !HasValue(status)) continue;
        text.append(separator).append(Columns()[column].name).append(L"\":");
        separator = L",\"";
        if (isNull) {
            text += L"null";
        } else {
            AppendValue(text, Values().OutputType(column), ShownText(column));
        }
    }
    text += L'}';
}

}  // namespace quorbel
