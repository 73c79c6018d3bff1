#pragma once

#include <memory>

#include "platform/com/ClassRegistry.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// Makes the archive's OLE DB provider known, as "Quorbel.OLEDBProvider", for as long as the result lives.
/// Its settings stand in SOFTWARE\Quorbel\Archive, whose changes it follows: "Database" (text, an existing
/// SQLite file), "Connection" (text, an ODBC connection string, which goes before the file) and
/// "MaxConnections" (number: sessions at a time, those beyond wait in the order in which they came; 256, or
/// 64 over ODBC, unless set). Connections are shared by all data sources; nothing of it outlives the result
/// but objects that are still held.
CComRegistration RegisterArchiveProvider(std::shared_ptr<IKey> localMachine);

}  // namespace quorbel
