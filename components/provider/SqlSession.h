#pragma once

#include <memory>
#include <string_view>

#include "components/oledb/SessionConnection.h"
#include "components/provider/SqlCommandCache.h"
#include "components/provider/SqlConnection.h"

namespace quorbel {

/// A session of the provider: its connection, and the commands parsed for it.
class CSqlSession final : public CSessionConnection {
 public:
    CSqlSession(std::unique_ptr<CPooledConnection> connection, SqlDialect dialect,
                std::shared_ptr<CSqlCommandCache> commands)
        : CSessionConnection(std::move(connection)), m_dialect(dialect), m_commands(std::move(commands)) {}

    HRESULT Parse(std::wstring_view text, std::shared_ptr<const CSqlCommand>& command) {
        return m_commands->Parse(m_dialect, text, command);
    }

 private:
    const SqlDialect m_dialect;
    const std::shared_ptr<CSqlCommandCache> m_commands;
};

}  // namespace quorbel
