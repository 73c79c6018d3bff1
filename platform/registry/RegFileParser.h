#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/registry/RegFile.h"

namespace quorbel {

/// One change that a .reg text asks for; a key's own change comes before those of its values.
struct CRegFileChange {
    enum class Kind {
        CreateKey,
        DeleteKey,
        SetValue,
        DeleteValue,
    };
    Kind kind;
    std::wstring name;  ///< the key's path under HKEY_LOCAL_MACHINE, or the value's name
    CValue value;       ///< of SetValue
    bool operator==(const CRegFileChange&) const = default;
};

/// Reads a whole .reg text, or says what is wrong with it.
std::variant<std::vector<CRegFileChange>, CRegFileError> ParseRegFile(std::string_view bytes);

/// The text's first line.
inline constexpr std::wstring_view kRegFileHeader = L"Windows Registry Editor Version 5.00";

}  // namespace quorbel
