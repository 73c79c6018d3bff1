#pragma once

#include <atomic>
#include <memory>

#include "components/provider/DatabaseSettings.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// A data source of the provider: the way to sessions.
class CProviderSource final : public CComObject<IDBInitialize, IDBCreateSession> {
 public:
    explicit CProviderSource(std::shared_ptr<CDatabaseSettings> settings) : m_settings(std::move(settings)) {}

    HRESULT Initialize() override;
    HRESULT Uninitialize() override;
    HRESULT CreateSession(IUnknown* outer, const GUID& interfaceId, IUnknown** session) override;

 private:
    const std::shared_ptr<CDatabaseSettings> m_settings;
    std::atomic<bool> m_isInitialized{false};
};

}  // namespace quorbel
