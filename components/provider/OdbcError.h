#pragma once

#include <sql.h>
#include <string>

#include "platform/com/Com.h"

namespace quorbel {

/// What the driver says of a call that failed.
struct COdbcError {
    std::string state;     ///< SQLSTATE, five characters; empty when the driver says nothing
    std::wstring message;  ///< the driver's and the server's words
};

/// Takes the description of the last failure of a handle.
COdbcError TakeOdbcError(SQLSMALLINT type, SQLHANDLE handle);

/// Whether the failure means that the connection is lost.
bool IsConnectionLost(const COdbcError& error) noexcept;

/// The result that says what went wrong: 0x80070020 for locks that others hold and transactions that collide
/// with theirs, 0x80070070 for a full disk, E_FAIL for a lost connection, else DB_E_ERRORSINCOMMAND. Leaves
/// the description in platform/com/ErrorInfo.h.
HRESULT ReportOdbcError(const COdbcError& error);

}  // namespace quorbel
