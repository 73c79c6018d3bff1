#pragma once

#include <bit>
#include <cstdint>

namespace quorbel {

/// The number of a document in the index. It says in which folder the document lies and how long it is, so
/// that neither scope nor rank needs to look anything up. A document that moves or changes gets another
/// number; no number is used twice.
struct CDocumentId {
    static constexpr int kLengthBits = 8;
    static constexpr int kNumberBits = 28;
    static constexpr std::int64_t kMostFolders = std::int64_t{1} << 27;
    static constexpr std::int64_t kMostNumbers = std::int64_t{1} << kNumberBits;

    std::int64_t folder;       ///< the folder's row, below kMostFolders
    std::int64_t number;       ///< counts up within the folder, below kMostNumbers
    std::uint8_t lengthClass;  ///< of its words, see LengthClassOf

    constexpr std::int64_t Row() const noexcept {
        return (((folder << kNumberBits) | number) << kLengthBits) | lengthClass;
    }
    static constexpr std::int64_t FolderOf(std::int64_t row) noexcept {
        return row >> (kNumberBits + kLengthBits);
    }
    static constexpr std::uint8_t LengthClassOf(std::int64_t row) noexcept {
        return static_cast<std::uint8_t>(row & 0xFF);
    }
};

/// Lengths in words to within an eighth: exact below 8, then eight classes for each doubling.
constexpr std::uint8_t LengthClassOf(std::uint64_t words) noexcept {
    if (words < 8) return static_cast<std::uint8_t>(words);
    const int shift = std::bit_width(words) - 4;
    const auto lengthClass = static_cast<std::uint64_t>(shift) * 8 + (words >> shift);
    return static_cast<std::uint8_t>(lengthClass < 0xFF ? lengthClass : 0xFF);
}

/// The least length of a class.
constexpr double LengthOfClass(std::uint8_t lengthClass) noexcept {
    if (lengthClass < 16) return lengthClass;
    const int shift = lengthClass / 8 - 1;
    return static_cast<double>(std::uint64_t{8 + lengthClass % 8u} << shift);
}

}  // namespace quorbel
