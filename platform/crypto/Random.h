#pragma once

#include <span>

#include "platform/Error.h"

namespace quorbel {

/// Fills `bytes` with random bytes of the kernel's generator; waits until that has been seeded.
ErrorCode FillRandom(std::span<unsigned char> bytes) noexcept;

}  // namespace quorbel
