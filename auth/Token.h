#pragma once

#include <string>

#include "platform/Error.h"

namespace quorbel {

/// A new cookie value: 16 upper-case hexadecimal digits of a random 64-bit number. Fails when the system has
/// no random numbers.
CResult<std::string> NewToken();

}  // namespace quorbel
