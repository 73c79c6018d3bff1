#pragma once

#include "platform/com/Com.h"

namespace quorbel {

/// The interface identifier under which a consumer's event sink has the properties "Actor" (0), the script
/// engine library, and "Resource" (1), the value that each action is given.
inline constexpr GUID kScriptProperties{
    0xD2BE7AA4, 0x1B6D, 0x4BD9, {0x97, 0xA7, 0xBA, 0xF8, 0x1F, 0xFD, 0x8D, 0x1D}};

}  // namespace quorbel
