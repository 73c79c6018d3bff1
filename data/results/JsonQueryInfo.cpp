#include "data/results/Escapes.h"
#include "data/results/RowsetQueryInfo.h"

namespace quorbel {

namespace {

constexpr Escapes kJsonEscapes = [] {
    Escapes escapes{};
    escapes['\b'] = L"\\b";
    escapes['\t'] = L"\\t";
    escapes['\n'] = L"\\n";
    escapes['\f'] = L"\\f";
    escapes['\r'] = L"";
    escapes['"'] = L"\\\"";
    escapes['\\'] = L"\\\\";
    return escapes;
}();

void AppendValue(std::wstring& text, DBTYPE type, std::wstring_view value) {
    switch (type) {
        case DBTYPE_BSTR:
        case DBTYPE_STR:
        case DBTYPE_WSTR:
            text += L'"';
            AppendEscaped(text, value, kJsonEscapes);
            text += L'"';
            break;
        // Truth comes as "True" or "False", cut to the two characters that are bound for it.
        case DBTYPE_BOOL: text += value == L"Tr" ? L"true" : L"false"; break;
        default: AppendEscaped(text, value, kJsonEscapes); break;
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
