#include "components/provider/ProviderSession.h"

#include "components/oledb/ComBorder.h"
#include "components/provider/ProviderCommand.h"

namespace quorbel {

HRESULT CProviderSession::CreateCommand(IUnknown* outer, const GUID& interfaceId, IUnknown** command) {
    if (!command || outer) return E_INVALIDARG;
    return AtBorder([&] {
        const CComPtr<CProviderCommand> created(new CProviderCommand(m_connection));
        return created->QueryInterface(interfaceId, reinterpret_cast<void**>(command));
    });
}

}  // namespace quorbel
