#pragma once

#include <memory>
#include <string>

#include "components/provider/SqlConnection.h"

namespace quorbel {

/// The database that an ODBC connection string names, such as "Driver=PostgreSQL Unicode;Server=db.example;
/// Database=archive;Uid=reader;Pwd=...": a server that speaks PostgreSQL's language, through psqlodbcw. The
/// string is used for each connection; of its keywords UseServerSidePrepare, Protocol, UseDeclareFetch,
/// Parse, BoolsAsChar, TrueIsMinus1, LFConversion, ByteaAsLongVarBinary and ConnSettings have no effect. What
/// the server runs is said in docs/postgresql.md.
std::shared_ptr<ISqlDatabase> OpenOdbcDatabase(std::wstring connectionString);

}  // namespace quorbel
