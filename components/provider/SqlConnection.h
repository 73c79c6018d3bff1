#pragma once

#include <memory>
#include <span>

#include "components/oledb/Connection.h"
#include "components/oledb/Rows.h"
#include "components/provider/SqlCommand.h"
#include "components/provider/SqlFunctions.h"
#include "platform/com/Com.h"

namespace quorbel {

/// One connection to a database, used by one thread at a time. Failures are HRESULTs, with a description
/// left in platform/com/ErrorInfo.h: DB_E_ERRORSINCOMMAND for what the database refuses, DB_E_CANCELED,
/// 0x80070020 (sharing violation) for a database that stays locked, E_FAIL for one that cannot be used.
class ISqlConnection : public IConnection {
 public:
    /// Runs the statements one after another; `rows` receives those of the last, which may be without
    /// columns. Those before it run in one transaction, which is committed before the first of the rows is
    /// read; a last statement that writes belongs to it. Nothing has happened after a failure.
    virtual HRESULT Execute(const CSqlCommand& command, std::span<const CSqlArgument> arguments,
                            ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows) = 0;
};

/// Opens connections to one database, each an ISqlConnection. From any thread.
class ISqlDatabase : public IDatabase {
 public:
    virtual HRESULT Connect(std::unique_ptr<ISqlConnection>& connection) = 0;
    HRESULT Open(std::unique_ptr<IConnection>& connection) final {
        std::unique_ptr<ISqlConnection> connected;
        const HRESULT result = Connect(connected);
        connection = std::move(connected);
        return result;
    }
    /// How its commands are written.
    virtual SqlDialect Dialect() const noexcept { return SqlDialect::Standard; }
};

}  // namespace quorbel
