#pragma once

#include <cstddef>

namespace quorbel {

/// The processors that this process may use (its affinity), at least 1.
std::size_t UsableProcessors() noexcept;

}  // namespace quorbel
