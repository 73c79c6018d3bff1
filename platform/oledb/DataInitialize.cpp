#include "platform/oledb/DataInitialize.h"

#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

/// The value of a keyword in "KEYWORD=VALUE;KEYWORD=VALUE"; empty when it is missing.
std::wstring_view ValueOf(std::wstring_view keyword, std::wstring_view initialisation) {
    while (!initialisation.empty()) {
        const std::wstring_view part = initialisation.substr(0, initialisation.find(L';'));
        initialisation.remove_prefix(std::min(part.size() + 1, initialisation.size()));
        const std::size_t equals = part.find(L'=');
        if (equals != part.npos && EqualNoCase(Trim(part.substr(0, equals)), keyword)) {
            return Trim(part.substr(equals + 1));
        }
    }
    return {};
}

class CDataInitialize final : public CComObject<IDataInitialize> {
 public:
    HRESULT GetDataSource(IUnknown* outer, std::uint32_t, const wchar_t* initialisation,
                          const GUID& interfaceId, IUnknown** source) override {
        if (!initialisation || !source) return E_POINTER;
        *source = nullptr;
        if (outer) return E_NOTIMPL;
        const std::wstring_view provider = ValueOf(L"Provider", initialisation);
        if (provider.empty()) {
            SetErrorInfo(L"The initialisation string names no provider.");
            return E_INVALIDARG;
        }
        const auto classId = ClassOfProgram(provider);
        if (!classId) {
            SetErrorInfo(L"There is no provider of this name.");
            return REGDB_E_CLASSNOTREG;
        }
        return CreateComInstance(*classId, interfaceId, reinterpret_cast<void**>(source));
    }
};

}  // namespace

CComRegistration RegisterDataInitialize() {
    return {
        kDataInitializeClass, [](const GUID& interfaceId, void** object) {
            return CComPtr<IDataInitialize>(new CDataInitialize).Get()->QueryInterface(interfaceId, object);
        }};
}

}  // namespace quorbel
