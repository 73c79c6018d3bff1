#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace quorbel {

/// What a record's fields say, its arguments as they are encoded.
struct CTraceEntry {
    std::uint64_t number = 0;
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    std::uint8_t object = 0;                  ///< index of the object's name in its file
    std::span<const std::uint8_t> arguments;  ///< lives as long as the image
};

/// A block of records in memory. A shared handle; not synchronised.
class CTraceBuffer {
 public:
    static constexpr std::size_t kBlockSize = 16384;  ///< bytes
    static constexpr std::size_t kMostIdentifiers = 255;
    static constexpr std::size_t kLengthSize = 2;  ///< bytes at the start of the block

    CTraceBuffer();

    /// Adds a record; false, and nothing has happened, when it does not fit any more.
    bool Append(std::uint32_t id, std::uint8_t object, std::uint64_t time,
                std::span<const std::uint8_t> arguments) noexcept;
    std::size_t RecordCount() const noexcept;

    /// Marks the records with the numbers `first` to `end` (exclusive) for saving.
    void Mark(std::uint64_t first, std::uint64_t end) noexcept;
    bool IsMarked() const noexcept;

    /// What the buffer contributes to a file: the block up to the end of the last record, its length in
    /// front, and the identifiers by index, 4 bytes each.
    std::vector<std::uint8_t> Image() const;

 private:
    class CIdentifiers;
    class CRep;
    std::shared_ptr<CRep> m_rep;
};

/// Reads the records of an image one by one.
class CTraceImageReader {
 public:
    /// `first` is the number of the image's first record.
    CTraceImageReader(std::span<const std::uint8_t> image, std::uint64_t first) noexcept;

    /// The next record; none at the end, and where the image makes no sense (IsSound is false then).
    std::optional<CTraceEntry> Next() noexcept;
    bool IsSound() const noexcept { return m_isSound; }

 private:
    std::optional<CTraceEntry> Refuse() noexcept;

    std::span<const std::uint8_t> m_records;
    std::span<const std::uint8_t> m_identifiers;
    std::uint64_t m_number;
    std::uint64_t m_time = 0;
    bool m_isSound = true;
};

}  // namespace quorbel
