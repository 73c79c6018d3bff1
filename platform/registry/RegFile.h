#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/registry/Key.h"

namespace quorbel {

/// Why a .reg text was refused, and where.
struct CRegFileError {
    ErrorCode code = ErrorCode::InvalidData;
    std::size_t line = 0;  ///< 1-based; 0 when the failure is the registry's
    std::wstring reason;   ///< an English sentence
};

/// The key at `path` (under HKEY_LOCAL_MACHINE) and all below it as a .reg text, version 5.00, in UTF-16LE
/// with byte-order mark and CR LF, read at one moment. Keys in depth-first case-folded order; importing the
/// text and exporting again gives the same bytes. Begins a transaction of its own.
CResult<std::string> ExportRegFile(IRegistry& registry, std::wstring_view path);

/// Applies a .reg text (version 5.00; UTF-16LE or UTF-8, byte-order mark optional; CR LF or LF) in one
/// transaction of its own: all of it or, on an error, nothing. Keys and values to delete may be missing.
std::optional<CRegFileError> ImportRegFile(IRegistry& registry, std::string_view bytes);

}  // namespace quorbel
