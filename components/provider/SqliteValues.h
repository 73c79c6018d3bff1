#pragma once

#include <span>
#include <sqlite3.h>
#include <string_view>
#include <vector>

#include "components/provider/SqlConnection.h"

namespace quorbel {

/// The columns of a statement's result, with the types that their declarations stand for.
std::vector<CSqlColumn> DescribeColumns(sqlite3_stmt* statement);
/// The type of a column that was declared so; the empty text is that of an expression.
CSqlColumn ColumnOfDeclaration(std::string_view declaration);

/// A column of the present row, from 0; valid until the next one.
CSqlValue ColumnValue(sqlite3_stmt* statement, int column);

/// Sets a parameter, counted from 1. An SQLite result code, or SQLITE_MISMATCH for a type that no parameter
/// can have. Throws std::bad_alloc.
int BindValue(sqlite3_stmt* statement, int parameter, const VARIANT& value);

/// A value that a function was called with. Throws std::bad_alloc.
CVariant ToVariant(sqlite3_value* value);
/// The text of a value, U+FFFD for what is no UTF-8; nothing for NULL. Throws std::bad_alloc.
std::optional<std::wstring> ToText(sqlite3_value* value);
/// Returns a value from a function; false for a type that SQLite has no value for. Throws std::bad_alloc.
bool ReturnValue(sqlite3_context* context, const VARIANT& value);

}  // namespace quorbel
