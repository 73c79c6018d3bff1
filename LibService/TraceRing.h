#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "LibService/trace/TraceText.h"

namespace quorbel {

/// One kept record.
struct CTraceRecord {
    std::uint64_t number = 0;
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    std::uint64_t object = 0;  ///< key of the logged object
    std::vector<TraceValue> arguments;
};

/// The most recent records, in memory. Not synchronised.
class CTraceRing {
 public:
    static constexpr std::size_t kMostRecords = 10'000;
    static constexpr std::size_t kMostArgumentBytes = 8191;  ///< of one record
    static constexpr std::size_t kMostBytes = 16 << 20;      ///< of arguments, of all records

    /// False when they are too large for one record.
    static bool Fits(const std::vector<TraceValue>& arguments);
    /// Keeps the record under the next number, and lets go of the oldest ones beyond the limits. False, and
    /// no number used, when its arguments are too large.
    bool Append(CTraceRecord record);
    std::optional<CTraceRecord> Read(std::uint64_t number) const;
    std::uint64_t NextNumber() const noexcept { return m_next; }

 private:
    std::deque<CTraceRecord> m_records;
    std::size_t m_bytes = 0;
    std::uint64_t m_next = 0;
};

}  // namespace quorbel
