#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/com/Variant.h"

namespace quorbel {

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
};

/// A command's text, parsed: its statements in order, without empty ones. Parameters are written `@name` or
/// `@[any name]`; nothing inside quotes (', ", `, [ ]), comments or behind another "@" is a parameter. A
/// leading byte-order mark is dropped.
struct CSqlCommand {
    std::vector<CSqlStatement> statements;
};

}  // namespace quorbel
