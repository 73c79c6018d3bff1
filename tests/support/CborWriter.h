#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorbel::cbor {

/// Items of CBOR (RFC 8949) in their shortest form, the members of maps in the order given.
/// @{
using CMembers = std::vector<std::pair<std::string, std::string>>;  ///< keys and values, both encoded

inline std::string Head(unsigned major, std::uint64_t value) {
    const auto first = [major](unsigned low) { return std::string(1, static_cast<char>(major << 5 | low)); };
    if (value < 24) return first(static_cast<unsigned>(value));
    const unsigned width = value < 0x100 ? 0 : value < 0x10000 ? 1 : value < 0x100000000 ? 2 : 3;
    std::string head = first(24 + width);
    for (int shift = (8 << width) - 8; shift >= 0; shift -= 8)
        head += static_cast<char>(value >> shift & 0xFF);
    return head;
}
inline std::string Integer(std::int64_t value) {
    return value < 0 ? Head(1, static_cast<std::uint64_t>(-1 - value))
                     : Head(0, static_cast<std::uint64_t>(value));
}
inline std::string Bytes(std::string_view bytes) {
    return Head(2, bytes.size()).append(bytes);
}
inline std::string Text(std::string_view text) {
    return Head(3, text.size()).append(text);
}
inline std::string Array(const std::vector<std::string>& items) {
    std::string array = Head(4, items.size());
    for (const std::string& item : items) array += item;
    return array;
}
inline std::string Map(const CMembers& members) {
    std::string map = Head(5, members.size());
    for (const auto& [key, value] : members) map += key + value;
    return map;
}
/// @}

}  // namespace quorbel::cbor
