#pragma once

#include <cstdint>

namespace quorbel {

/// The number of a document in the index. It says in which folder the document lies and how long it is, so
/// that neither scope nor rank needs to look anything up. A document that moves or changes gets another
/// number; no number is used twice.
struct CDocumentId {
    static constexpr int kLengthBits = 8;
    static constexpr int kNumberBits = 28;

    std::int64_t folder;       ///< the folder's row; up to 2^27 - 1
    std::int64_t number;       ///< counts up within the folder; up to 2^28 - 1
    std::uint8_t lengthClass;  ///< of its words, see LengthClassOf

    constexpr std::int64_t Row() const noexcept {
        return (((folder << kNumberBits) | number) << kLengthBits) | lengthClass;
    }
    static constexpr CDocumentId FromRow(std::int64_t row) noexcept {
        return {row >> (kNumberBits + kLengthBits), (row >> kLengthBits) & ((1 << kNumberBits) - 1),
                static_cast<std::uint8_t>(row & 0xFF)};
    }
};

}  // namespace quorbel
