#pragma once

#include <string>
#include <string_view>

#include "platform/registry/Key.h"

namespace quorbel {

/// Why a .reg text was refused, and where.
struct CRegFileError {
    std::size_t line = 0;  ///< 1-based; 0 when the failure is the registry's
    std::wstring reason;
};

/// The keys below `path` (under HKEY_LOCAL_MACHINE) as a .reg text, version 5.00, in UTF-16LE with byte-order
/// mark and CR LF. Keys in depth-first case-folded order; importing the text and exporting again gives the same
/// bytes.
CResult<std::string> ExportRegFile(IRegistry& registry, std::wstring_view path);

/// Applies a .reg text (version 5.00; UTF-16LE or UTF-8, byte-order mark optional; CR LF or LF) in one
/// transaction: all of it or, on an error, nothing.
std::optional<CRegFileError> ImportRegFile(IRegistry& registry, std::string_view bytes);

}  // namespace quorbel
