#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "LibService/trace/TraceFile.h"

namespace quorbel {

/// The most recent records, in files that live in memory until they are dropped. Not synchronised.
class CTraceMemory {
 public:
    static constexpr std::uint32_t kDefaultSpan = 10'000;
    /// How many files are kept that were dropped before they could be saved.
    static constexpr std::size_t kMostUnsaved = 16;

    /// `name` is the service's, for the files.
    explicit CTraceMemory(std::string name);
    /// How many records the files cover; 0 for no limit.
    void SetSpan(std::uint32_t span) noexcept { m_span = span; }

    /// Adds a record under the next number; false, and no number is used, when it cannot be placed. The
    /// object outlives the memory.
    bool Append(std::uint32_t id, const CTraceLoggable& object, std::uint64_t time,
                std::span<const std::uint8_t> arguments);

    /// The number that the next record will get; they begin with 0.
    std::uint64_t NextRecord() const noexcept { return m_next; }
    /// The number of the oldest record; NextRecord() when there is none.
    std::uint64_t OldestRecord() const noexcept;

    /// Marks the last records, that many of them, for saving.
    void MarkLast(std::uint64_t count) noexcept;
    /// True once after a file was dropped that has something to save.
    bool TakeDropped() noexcept { return std::exchange(m_hasDropped, false); }
    /// The files that have something to save, the dropped ones included.
    std::vector<CTraceFile> Changed() const;
    /// Everything that Changed gave counts as saved.
    void NoteSaved() noexcept;
    /// Takes a file back that could not be saved after all.
    void PutBack(const CTraceFile& file) noexcept;

    /// The file that holds a record; none when it was dropped or does not exist yet.
    const CTraceFile* FileOf(std::uint64_t number) const noexcept;

 private:
    CTraceFile& BeginFile();
    void DropOldest();
    void Keep(const CTraceFile& dropped) noexcept;

    const std::string m_name;
    std::uint32_t m_span = kDefaultSpan;
    std::uint64_t m_next = 0;
    std::uint32_t m_fileCount = 0;
    std::map<std::uint64_t, CTraceFile> m_files;  // by the number of the first record
    std::vector<CTraceFile> m_unsaved;            // dropped, oldest first; has room for all that it may hold
    bool m_hasDropped = false;
};

}  // namespace quorbel
