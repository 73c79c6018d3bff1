#pragma once

#include <string>

#include "platform/com/Variant.h"

namespace quorbel::LibScripting {

/// What a value holds, for engines. Throw LibScripting::exception, with the HRESULT that says why, when the
/// value holds nothing of the kind.
/// @{

/// Texts as they are, numbers as VariantChangeType writes them.
std::wstring ToText(const VARIANT& value);
/// Everything from the position of a VT_UNKNOWN with ISequentialStream to its end: the bytes of a blob. At
/// most `most` bytes: more are E_OUTOFMEMORY.
std::string ReadBytes(const VARIANT& value, std::size_t most);

/// @}

}  // namespace quorbel::LibScripting
