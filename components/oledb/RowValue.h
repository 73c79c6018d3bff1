#pragma once

#include <cstddef>

#include "components/oledb/Rows.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// Writes a column's value into a consumer's row buffer as the binding asks, length and status included, and
/// returns the status. Values are made to be of the column's type first: DBSTATUS_E_CANTCONVERTVALUE for one
/// that is not, or that the type bound cannot hold.
///
/// Texts of values: whole numbers in decimal; floating point the shortest that reads back as the same number,
/// or rounded to what fits; infinities 1e999 and -1e999; "True" and "False"; decimal numbers without exponent
/// where that fits; bytes in upper-case hexadecimal. Texts that are too long are cut, with
/// DBSTATUS_S_TRUNCATED and their whole length; numbers that do not fit are DBSTATUS_E_DATAOVERFLOW.
/// E_OUTOFMEMORY is DBSTATUS_E_CANTCREATE.
DBSTATUS WriteRowValue(const CSqlColumn& column, const CSqlValue& value, const DBBINDING& binding,
                       std::byte* row);

}  // namespace quorbel
