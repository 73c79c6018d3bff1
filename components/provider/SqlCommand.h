#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/com/Variant.h"

namespace quorbel {

/// How a database writes what is no parameter.
enum class SqlDialect {
    Sqlite,   ///< quotes ', ", ` and [ ]; the statements of a trigger's body belong to its CREATE
    Standard  ///< quotes ' and ", E'...' with backslashes, $tag$...$tag$; comments nest
};

/// The value that a command's parameter has in one execution. Of several with one name the first counts.
struct CSqlArgument {
    std::wstring name;  ///< compared exactly
    CVariant value;
};

/// A statement with its parameters taken out of the text.
struct CSqlStatement {
    /// The text between the parameters, UTF-8: one piece more than there are parameters.
    std::vector<std::string> pieces;
    /// The parameters' names, in the order of the text.
    std::vector<std::wstring> parameters;
    std::size_t line = 1;  ///< where it begins in the command's text, counted from 1

    /// The same with a number for each name: `?1`, `?2`, ... and the names that they stand for.
    /// @{
    std::string numbered = {};
    std::vector<std::wstring> names = {};
    /// @}
};

/// A command's text, parsed: its statements in order, without empty ones. Parameters are written `@name` or
/// `@[any name]` (a "]" in it is doubled); nothing inside quotes, comments or behind another "@" is a
/// parameter. A leading byte-order mark is dropped.
struct CSqlCommand {
    std::vector<CSqlStatement> statements;
};

}  // namespace quorbel
