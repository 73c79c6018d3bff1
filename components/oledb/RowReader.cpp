#include "components/oledb/RowReader.h"

#include "components/oledb/ComBorder.h"
#include "components/oledb/RowValue.h"

namespace quorbel {

namespace {

constexpr auto kRowsNotReleased = static_cast<HRESULT>(0x80040E25);

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

}  // namespace

CRowReader::CRowReader(std::shared_ptr<ISqlRows> rows, std::function<bool()> isCanceled)
    : m_rows(std::move(rows)),
      m_isCanceled(std::move(isCanceled)),
      m_accessors(CAccessors::ForRows(m_rows->Columns().size())) {}

HRESULT CRowReader::GetData(HROW row, HACCESSOR accessor, void* data) {
    const auto* const bindings = m_accessors.Find(accessor);
    if (!bindings) return DB_E_BADACCESSORHANDLE;
    if (!m_hasRow || row != m_row) return DB_E_BADROWHANDLE;
    return AtBorder([&] {
        const auto columns = m_rows->Columns();
        bool isWhole = true;
        bool isShort = false;  // of memory
        for (const DBBINDING& binding : *bindings) {
            const std::size_t column = binding.iOrdinal - 1;
            const DBSTATUS status =
                WriteRowValue(columns[column], m_rows->Value(column), binding, static_cast<std::byte*>(data));
            isWhole = isWhole && (status == DBSTATUS_S_OK || status == DBSTATUS_S_ISNULL ||
                                  status == DBSTATUS_S_TRUNCATED);
            isShort = isShort || status == DBSTATUS_E_CANTCREATE;
        }
        if (isShort) return E_OUTOFMEMORY;
        return isWhole ? S_OK : DB_S_ERRORSOCCURRED;
    });
}

HRESULT CRowReader::GetNextRows(std::ptrdiff_t offset, std::ptrdiff_t count, std::size_t* obtained,
                                HROW** rows) {
    if (!obtained || !rows || !*rows || offset != 0 || count != 1) return E_INVALIDARG;
    *obtained = 0;
    if (m_hasRow) return kRowsNotReleased;
    if (m_end != S_OK) return m_end;
    return AtBorder([&] {
        const HRESULT next = m_isCanceled() ? DB_E_CANCELED : m_rows->Next();
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

HRESULT CRowReader::ReleaseRows(std::size_t count, const HROW* rows, std::uint32_t* references) {
    if (count == 0) return S_OK;
    if (count != 1 || !rows || !m_hasRow || *rows != m_row) return DB_E_ERRORSOCCURRED;
    m_hasRow = false;
    if (references) *references = 0;
    return S_OK;
}

HRESULT CRowReader::RestartPosition() const {
    return m_row == 0 && m_end == S_OK ? S_OK : DB_E_CANNOTRESTART;
}

HRESULT CRowReader::CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                                   HACCESSOR* accessor, DBSTATUS* statuses) {
    return AtBorder([&] { return m_accessors.Create(flags, count, bindings, accessor, statuses); });
}

HRESULT CRowReader::ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references) {
    return m_accessors.Release(accessor, references);
}

HRESULT CRowReader::GetColumnInfo(std::size_t* count, DBCOLUMNINFO** info, wchar_t** names) const {
    if (!count || !info || !names) return E_INVALIDARG;
    const auto columns = m_rows->Columns();
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

}  // namespace quorbel
