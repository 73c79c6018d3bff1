#pragma once

#include <memory>

#include "components/provider/SqlSession.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// A session of the provider: a connection to the database.
class CProviderSession final : public CComObject<IOpenRowset, IDBCreateCommand> {
 public:
    explicit CProviderSession(std::shared_ptr<CSqlSession> connection)
        : m_connection(std::move(connection)) {}

    HRESULT CreateCommand(IUnknown* outer, const GUID& interfaceId, IUnknown** command) override;

 private:
    const std::shared_ptr<CSqlSession> m_connection;
};

}  // namespace quorbel
