#include "components/provider/ProviderRowset.h"

#include "components/provider/ComBorder.h"
#include "components/provider/RowValue.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

constexpr auto kRowsNotReleased = static_cast<HRESULT>(0x80040E25);
constexpr std::wstring_view kProvenance = L"HTTP.Provenance";
constexpr std::wstring_view kHeader = L"HTTP.Header";

DBTYPE ProviderType(CSqlColumn::Type type) noexcept {
    switch (type) {
        case CSqlColumn::Type::I2: return DBTYPE_I2;
        case CSqlColumn::Type::I4: return DBTYPE_I4;
        case CSqlColumn::Type::I8: return DBTYPE_I8;
        case CSqlColumn::Type::R4: return DBTYPE_R4;
        case CSqlColumn::Type::R8: return DBTYPE_R8;
        case CSqlColumn::Type::Numeric: return DBTYPE_NUMERIC;
        case CSqlColumn::Type::Bool: return DBTYPE_BOOL;
        case CSqlColumn::Type::Text: return DBTYPE_WSTR;
        case CSqlColumn::Type::Variant: break;
    }
    return DBTYPE_VARIANT;
}

std::size_t ColumnSize(CSqlColumn::Type type) noexcept {
    constexpr std::size_t kNumericBytes = 19;
    switch (type) {
        case CSqlColumn::Type::I2: return sizeof(std::int16_t);
        case CSqlColumn::Type::I4: return sizeof(std::int32_t);
        case CSqlColumn::Type::I8: return sizeof(std::int64_t);
        case CSqlColumn::Type::R4: return sizeof(float);
        case CSqlColumn::Type::R8: return sizeof(double);
        case CSqlColumn::Type::Numeric: return kNumericBytes;
        case CSqlColumn::Type::Bool: return sizeof(VARIANT_BOOL);
        case CSqlColumn::Type::Text: return kUnknownSize;
        case CSqlColumn::Type::Variant: break;
    }
    return sizeof(VARIANT);
}

CVariant HeaderValue(const std::vector<std::wstring>& headers) {
    return headers.empty() ? CVariant() : CVariant::FromTexts(headers);
}

}  // namespace

CProviderRowset::CProviderRowset(std::unique_ptr<CExecution> execution)
    : m_execution(std::move(execution)),
      m_provenance(m_execution->Functions().Provenance()),
      m_headers(HeaderValue(m_execution->Functions().Headers())),
      m_accessors(CAccessors::ForRows(m_execution->Rows().Columns().size())) {}

HRESULT CProviderRowset::GetData(HROW row, HACCESSOR accessor, void* data) {
    const auto* const bindings = m_accessors.Find(accessor);
    if (!bindings) return DB_E_BADACCESSORHANDLE;
    if (!m_hasRow || row != m_row) return DB_E_BADROWHANDLE;
    return AtBorder([&] {
        ISqlRows& rows = m_execution->Rows();
        const auto columns = rows.Columns();
        bool isWhole = true;
        bool isShort = false;  // of memory
        for (const DBBINDING& binding : *bindings) {
            const std::size_t column = binding.iOrdinal - 1;
            const DBSTATUS status =
                WriteRowValue(columns[column], rows.Value(column), binding, static_cast<std::byte*>(data));
            isWhole = isWhole && (status == DBSTATUS_S_OK || status == DBSTATUS_S_ISNULL ||
                                  status == DBSTATUS_S_TRUNCATED);
            isShort = isShort || status == DBSTATUS_E_CANTCREATE;
        }
        if (isShort) return E_OUTOFMEMORY;
        return isWhole ? S_OK : DB_S_ERRORSOCCURRED;
    });
}

HRESULT CProviderRowset::GetNextRows(HCHAPTER, std::ptrdiff_t offset, std::ptrdiff_t count,
                                     std::size_t* obtained, HROW** rows) {
    if (!obtained || !rows || !*rows || offset != 0 || count != 1) return E_INVALIDARG;
    *obtained = 0;
    if (m_hasRow) return kRowsNotReleased;
    if (m_end != S_OK) return m_end;
    return AtBorder([&] {
        const HRESULT next = m_execution->IsCanceled() ? DB_E_CANCELED : m_execution->Rows().Next();
        if (next != S_OK) {
            m_end = next;
            return next;
        }
        m_hasRow = true;
        **rows = ++m_row;
        *obtained = 1;
        return S_OK;
    });
}

HRESULT CProviderRowset::ReleaseRows(std::size_t count, const HROW* rows, std::uint32_t*,
                                     std::uint32_t* references, DBSTATUS*) {
    if (count == 0) return S_OK;
    if (count != 1 || !rows || !m_hasRow || *rows != m_row) return DB_E_ERRORSOCCURRED;
    m_hasRow = false;
    if (references) *references = 0;
    return S_OK;
}

HRESULT CProviderRowset::RestartPosition(HCHAPTER) {
    return m_row == 0 && m_end == S_OK ? S_OK : DB_E_CANNOTRESTART;
}

HRESULT CProviderRowset::CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                                        std::size_t, HACCESSOR* accessor, DBSTATUS* statuses) {
    return AtBorder([&] { return m_accessors.Create(flags, count, bindings, accessor, statuses); });
}

HRESULT CProviderRowset::ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references) {
    return m_accessors.Release(accessor, references);
}

HRESULT CProviderRowset::GetColumnInfo(std::size_t* count, DBCOLUMNINFO** info, wchar_t** names) {
    if (!count || !info || !names) return E_INVALIDARG;
    const auto columns = m_execution->Rows().Columns();
    *count = columns.size();
    *info = nullptr;
    *names = nullptr;
    if (columns.empty()) return S_OK;
    std::size_t characters = 0;
    for (const CSqlColumn& column : columns) characters += column.name.size() + 1;
    *info = static_cast<DBCOLUMNINFO*>(CoTaskMemAlloc(columns.size() * sizeof(DBCOLUMNINFO)));
    *names = static_cast<wchar_t*>(CoTaskMemAlloc(characters * sizeof(wchar_t)));
    if (!*info || !*names) {
        CoTaskMemFree(std::exchange(*info, nullptr));
        CoTaskMemFree(std::exchange(*names, nullptr));
        return E_OUTOFMEMORY;
    }
    wchar_t* name = *names;
    for (std::size_t index = 0; index != columns.size(); ++index) {
        const CSqlColumn& column = columns[index];
        (*info)[index] = {
            name,         index + 1, 0, ColumnSize(column.type), ProviderType(column.type), column.precision,
            column.scale, {}};
        name[column.name.copy(name, column.name.size())] = L'\0';
        name += column.name.size() + 1;
    }
    return S_OK;
}

HRESULT CProviderRowset::GetCount(std::uint32_t* count) {
    if (!count) return E_POINTER;
    *count = (m_provenance.vt != VT_EMPTY ? 1 : 0) + (m_headers.vt != VT_EMPTY ? 1 : 0);
    return S_OK;
}

HRESULT CProviderRowset::GetValue(const VARIANT* name, VARIANT* value) {
    if (!name || !value) return E_POINTER;
    if (name->vt != VT_BSTR) return DISP_E_TYPEMISMATCH;
    const std::wstring_view text = ToView(name->bstrVal);
    if (text == kProvenance) return VariantCopy(*value, m_provenance);
    if (text == kHeader) return VariantCopy(*value, m_headers);
    return VariantCopy(*value, VARIANT());
}

}  // namespace quorbel
