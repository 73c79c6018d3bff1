#pragma once

#include <memory>
#include <string>

#include "components/provider/SqlConnection.h"
#include "components/provider/SqliteHandle.h"

namespace quorbel {

/// The SQLite file at a path as ToLocalPath takes it. It is opened for each connection, and must exist.
std::shared_ptr<ISqlDatabase> OpenSqliteDatabase(std::wstring path, const CSqliteOptions& options = {});

}  // namespace quorbel
