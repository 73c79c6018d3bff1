#pragma once

#include <cstddef>

namespace quorbel {

/// The size or offset, made a multiple of what the values in a row's or a parameter set's buffer are aligned
/// to.
constexpr std::size_t Align(std::size_t size) noexcept {
    constexpr std::size_t kAlignment = 8;
    return (size + kAlignment - 1) / kAlignment * kAlignment;
}

}  // namespace quorbel
