#include "data/consumer/RowAccessor.h"

#include <algorithm>
#include <cstring>

#include "data/consumer/Alignment.h"

namespace quorbel {

namespace {

std::size_t BytesOf(const DBBINDING& binding) noexcept {
    return binding.wType == DBTYPE_WSTR ? binding.cbMaxLen * sizeof(wchar_t) : binding.cbMaxLen;
}

/// The bytes of a value of a type that is bound as it is.
std::size_t OwnSize(const DBCOLUMNINFO& column) noexcept {
    switch (column.wType) {
        case DBTYPE_I1:
        case DBTYPE_UI1: return 1;
        case DBTYPE_I2:
        case DBTYPE_UI2:
        case DBTYPE_BOOL: return 2;
        case DBTYPE_I4:
        case DBTYPE_UI4:
        case DBTYPE_R4: return 4;
        case DBTYPE_VARIANT: return sizeof(VARIANT);
        case DBTYPE_GUID: return sizeof(GUID);
        case DBTYPE_BYTES: return column.ulColumnSize;
        case DBTYPE_STR: return column.ulColumnSize + 1;
        case DBTYPE_WSTR: return column.ulColumnSize + 1;  // characters
        case DBTYPE_NUMERIC:
        case DBTYPE_DECIMAL: return 24;
        default: return 8;
    }
}

}  // namespace

std::size_t CRowAccessor::ReservedCharacters(const DBCOLUMNINFO& column) noexcept {
    switch (column.wType) {
        case DBTYPE_I2: return 7;
        case DBTYPE_I4: return 12;
        case DBTYPE_R4: return 13;
        case DBTYPE_R8:
        case DBTYPE_DECIMAL:
        case DBTYPE_NUMERIC: return 23;
        case DBTYPE_BSTR:
        case DBTYPE_STR:
        case DBTYPE_WSTR: return column.ulColumnSize;
        case DBTYPE_BOOL: return 2;
        case DBTYPE_I1: return 5;
        case DBTYPE_UI1: return 4;
        case DBTYPE_UI2: return 6;
        case DBTYPE_UI4: return 11;
        case DBTYPE_I8: return 22;
        case DBTYPE_UI8: return 21;
        case DBTYPE_GUID: return 38;
        case DBTYPE_BYTES: return 2 * column.ulColumnSize;
        default: return 32;
    }
}

HRESULT CRowAccessor::Bind(CComPtr<IAccessor> accessor, std::span<const CColumn> columns, Form form,
                           VariantTyping typing) {
    Release();
    m_typing = typing;
    m_places.clear();
    m_bindings.clear();
    m_size = 0;
    m_places.reserve(columns.size());
    m_extensions.clear();
    m_extensions.reserve(columns.size());
    for (const CColumn& column : columns) {
        m_places.push_back({kNotBound, column.info.wType, DBTYPE_WSTR});
        m_extensions.push_back({&m_places.back().variantType, 1});
        if (column.info.iOrdinal != 0) AddBinding(column, form);
    }
    m_buffer = std::make_unique<std::byte[]>(std::max<std::size_t>(m_size, 1));
    m_accessor = std::move(accessor);
    return CreateAccessor();
}

void CRowAccessor::AddBinding(const CColumn& column, Form form) {
    DBBINDING binding{};
    binding.iOrdinal = column.info.iOrdinal;
    binding.dwPart = DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS;
    if (form == Form::Text) {
        DescribeText(column, binding);
    } else {
        DescribeOwnType(column, binding);
    }
    Lay(binding);
    m_places.back().binding = m_bindings.size();
    m_bindings.push_back(binding);
}

void CRowAccessor::DescribeText(const CColumn& column, DBBINDING& binding) {
    const DBTYPE type = column.info.wType;
    const bool isLong = type == DBTYPE_VARIANT || type == DBTYPE_IUNKNOWN;
    if (isLong || column.info.ulColumnSize > kLongestInBuffer) {
        binding.wType = DBTYPE_WSTR | DBTYPE_BYREF;
        binding.cbMaxLen = sizeof(wchar_t*);
    } else {
        binding.wType = DBTYPE_WSTR;
        binding.cbMaxLen = ReservedCharacters(column.info) + 1;
    }
    if (type == DBTYPE_VARIANT && m_typing == VariantTyping::Own) binding.pBindExt = &m_extensions.back();
}

void CRowAccessor::DescribeOwnType(const CColumn& column, DBBINDING& binding) {
    const DBTYPE type = column.info.wType;
    const bool hasFixedSize = type == DBTYPE_VARIANT || type == DBTYPE_IUNKNOWN;
    if (!hasFixedSize && column.info.ulColumnSize > kLongestInBuffer) {
        binding.wType = DBTYPE_IUNKNOWN;
        binding.cbMaxLen = sizeof(IUnknown*);
        binding.pObject = &m_storageObject;
    } else {
        binding.wType = type;
        binding.cbMaxLen = OwnSize(column.info);
    }
}

void CRowAccessor::Lay(DBBINDING& binding) {
    binding.obValue = m_size;
    binding.obLength = Align(binding.obValue + BytesOf(binding));
    binding.obStatus = binding.obLength + sizeof(std::size_t);
    m_size = Align(binding.obStatus + sizeof(DBSTATUS));
}

HRESULT CRowAccessor::CreateAccessor() {
    const auto create = [this] {
        return m_accessor->CreateAccessor(DBACCESSOR_ROWDATA, m_bindings.size(), m_bindings.data(), m_size,
                                          &m_handle, nullptr);
    };
    m_storageObject.iid = ISequentialStream::kId;
    HRESULT result = create();
    const bool hasObjects = std::ranges::any_of(m_bindings, &DBBINDING::pObject);
    if (!Succeeded(result) && hasObjects) {
        m_storageObject.iid = IStream::kId;
        result = create();
    }
    if (!Succeeded(result)) m_accessor = nullptr;
    return result;
}

HRESULT CRowAccessor::GetData(IRowset& rowset, HROW row) {
    ReleaseValues();
    std::memset(m_buffer.get(), 0, m_size);
    // Whatever the result: some values may be there.
    m_hasValues = true;
    return rowset.GetData(row, m_handle, m_buffer.get());
}

void CRowAccessor::ReleaseValues() noexcept {
    if (!std::exchange(m_hasValues, false)) return;
    for (const DBBINDING& binding : m_bindings) {
        if (!HasValue(At<DBSTATUS>(binding.obStatus))) continue;
        if (binding.wType & DBTYPE_BYREF) CoTaskMemFree(std::exchange(At<void*>(binding.obValue), nullptr));
        if (binding.wType == DBTYPE_VARIANT) VariantClear(At<VARIANT>(binding.obValue));
        if (binding.wType == DBTYPE_BSTR) SysFreeString(At<BSTR>(binding.obValue));
        if (binding.wType == DBTYPE_IUNKNOWN && At<IUnknown*>(binding.obValue)) {
            At<IUnknown*>(binding.obValue)->Release();
        }
    }
}

void CRowAccessor::Release() noexcept {
    ReleaseValues();
    if (m_accessor) Ignore(m_accessor->ReleaseAccessor(m_handle, nullptr));
    m_accessor = nullptr;
}

DBSTATUS CRowAccessor::Status(std::size_t column) const noexcept {
    return m_places[column].binding == kNotBound ? DBSTATUS_E_BADACCESSOR
                                                 : At<DBSTATUS>(BindingOf(column).obStatus);
}

std::wstring_view CRowAccessor::Text(std::size_t column) const noexcept {
    if (!HasValue(Status(column))) return {};
    const DBBINDING& binding = BindingOf(column);
    const auto length = At<std::size_t>(binding.obLength);
    if (binding.wType & DBTYPE_BYREF) return {At<const wchar_t*>(binding.obValue), length};
    // The length of a truncated text is that of the whole.
    return {&At<wchar_t>(binding.obValue), std::min(length, binding.cbMaxLen - 1)};
}

const VARIANT& CRowAccessor::Variant(std::size_t column) const noexcept {
    return At<VARIANT>(BindingOf(column).obValue);
}

DBTYPE CRowAccessor::OutputType(std::size_t column) const noexcept {
    const CPlace& place = m_places[column];
    return (place.providerType == DBTYPE_VARIANT ? place.variantType : place.providerType) & kTypeBits;
}

}  // namespace quorbel
