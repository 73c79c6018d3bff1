#pragma once

#include <cstdint>
#include <string_view>

namespace quorbel {

/// The 64-bit FNV-1a hash (offset basis 0xCBF29CE484222325, prime 0x100000001B3) of bytes.
constexpr std::uint64_t Fnv1a64(std::string_view bytes) noexcept {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return hash;
}

}  // namespace quorbel
