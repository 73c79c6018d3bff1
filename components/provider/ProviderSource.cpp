#include "components/provider/ProviderSource.h"

#include "components/oledb/ComBorder.h"
#include "components/provider/ProviderSession.h"

namespace quorbel {

HRESULT CProviderSource::Initialize() {
    m_isInitialized = true;
    return S_OK;
}

HRESULT CProviderSource::Uninitialize() {
    m_isInitialized = false;
    return S_OK;
}

HRESULT CProviderSource::CreateSession(IUnknown* outer, const GUID& interfaceId, IUnknown** session) {
    if (!session || outer) return E_INVALIDARG;
    *session = nullptr;
    if (!m_isInitialized) return E_UNEXPECTED;
    return AtBorder([&] {
        std::shared_ptr<CConnectionPool> pool;
        HRESULT result = m_settings->Pool(pool);
        if (!Succeeded(result)) return result;
        std::unique_ptr<CPooledConnection> connection;
        result = pool->Take(connection);
        if (!Succeeded(result)) return result;
        const SqlDialect dialect = static_cast<const ISqlDatabase&>(pool->Database()).Dialect();
        const CComPtr<CProviderSession> created(new CProviderSession(
            std::make_shared<CSqlSession>(std::move(connection), dialect, m_settings->Commands())));
        return created->QueryInterface(interfaceId, reinterpret_cast<void**>(session));
    });
}

}  // namespace quorbel
