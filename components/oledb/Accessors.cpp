#include "components/oledb/Accessors.h"

#include <algorithm>

namespace quorbel {

namespace {

/// What a binding's status can be.
enum BindingStatus : DBSTATUS { kOk = 0, kBadOrdinal = 1, kUnsupportedConversion = 2, kBadBinding = 3 };

bool IsRowType(DBTYPE type) noexcept {
    switch (type) {
        case DBTYPE_WSTR:
        case DBTYPE_WSTR | DBTYPE_BYREF:
        case DBTYPE_I2:
        case DBTYPE_I4:
        case DBTYPE_I8:
        case DBTYPE_R4:
        case DBTYPE_R8:
        case DBTYPE_BOOL:
        case DBTYPE_VARIANT:
        case DBTYPE_IUNKNOWN: return true;
        default: return false;
    }
}

}  // namespace

HRESULT CAccessors::Create(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                           HACCESSOR* accessor, DBSTATUS* statuses) {
    if (!accessor || (count != 0 && !bindings)) return E_INVALIDARG;
    *accessor = 0;
    if (flags != m_flags) return DB_E_BADBINDINFO;
    bool isGood = true;
    for (std::size_t index = 0; index != count; ++index) {
        const DBSTATUS status = Check(bindings[index]);
        if (statuses) statuses[index] = status;
        isGood = isGood && status == kOk;
    }
    if (!isGood) return DB_E_ERRORSOCCURRED;
    m_accessors.push_back(std::make_unique<std::vector<DBBINDING>>(bindings, bindings + count));
    *accessor = reinterpret_cast<HACCESSOR>(m_accessors.back().get());
    return S_OK;
}

HRESULT CAccessors::Release(HACCESSOR accessor, std::uint32_t* references) {
    const auto* const found = Find(accessor);
    if (!found) return DB_E_BADACCESSORHANDLE;
    std::erase_if(m_accessors, [&](const auto& entry) { return entry.get() == found; });
    if (references) *references = 0;
    return S_OK;
}

const std::vector<DBBINDING>* CAccessors::Find(HACCESSOR accessor) const noexcept {
    for (const auto& entry : m_accessors) {
        if (reinterpret_cast<HACCESSOR>(entry.get()) == accessor) return entry.get();
    }
    return nullptr;
}

DBSTATUS CAccessors::Check(const DBBINDING& binding) const noexcept {
    if (binding.iOrdinal == 0 || binding.iOrdinal > m_mostOrdinal) return kBadOrdinal;
    if (m_flags == DBACCESSOR_PARAMETERDATA) {
        const bool isKnown = binding.wType == DBTYPE_BSTR || binding.wType == DBTYPE_VARIANT;
        return isKnown ? kOk : kUnsupportedConversion;
    }
    if (!IsRowType(binding.wType)) return kUnsupportedConversion;
    const bool isStream = !binding.pObject || binding.pObject->iid == ISequentialStream::kId ||
                          binding.pObject->iid == IUnknown::kId;
    return binding.wType != DBTYPE_IUNKNOWN || isStream ? kOk : kBadBinding;
}

}  // namespace quorbel
