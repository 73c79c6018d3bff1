#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "LibService/TraceLogger.h"
#include "LibService/trace/TraceBuffer.h"

namespace quorbel {

/// A buffer's image and the number of its first record.
struct CTraceBlock {
    std::uint64_t first = 0;
    std::vector<std::uint8_t> image;
};

/// What a file is written from, taken out of the memory that goes on changing.
struct CTraceFileImage {
    std::vector<std::string> objects;  ///< names by index
    std::map<std::string, std::string> headers;
    std::vector<CTraceBlock> blocks;
};

/// The bytes of a file, its blocks compressed; docs/trace-format.md describes them.
std::vector<std::uint8_t> WriteTraceFile(const CTraceFileImage& image);

/// A trace file in memory: up to eight buffers of records and the names of the objects that wrote them. A
/// shared handle; not synchronised.
class CTraceFile {
 public:
    static constexpr std::size_t kMostBuffers = 8;
    static constexpr std::size_t kMostStrings = 255;       ///< names and headers together
    static constexpr std::size_t kMostStringLength = 255;  ///< bytes; longer ones are cut

    /// `serviceName` stands in the file's header; `number` makes its name distinct.
    CTraceFile(std::string serviceName, std::uint64_t firstRecord, std::uint32_t number);

    /// Adds the record with the number `number`, one more than the last one's; false, and nothing has
    /// happened, when the file is full. The object outlives the file.
    bool Append(std::uint64_t number, std::uint32_t id, const CTraceLoggable& object, std::uint64_t time,
                std::span<const std::uint8_t> arguments);

    std::uint64_t FirstRecord() const noexcept;
    std::uint32_t Number() const noexcept;
    /// One more than the last record's number.
    std::uint64_t EndRecord() const noexcept;

    /// Marks those of the records from `first` to `end` (exclusive) that the file holds for saving. The whole
    /// buffers that hold them are saved.
    void Mark(std::uint64_t first, std::uint64_t end) noexcept;
    /// Whether something was marked since the file was written.
    /// @{
    bool IsChanged() const noexcept;
    void SetChanged(bool isChanged) noexcept;
    /// @}
    /// The marked buffers.
    CTraceFileImage MarkedImage() const;

    /// The buffer that holds a record; none when it is not of this file.
    std::optional<CTraceBlock> BlockOf(std::uint64_t number) const;
    /// The objects by their index.
    const std::vector<const CTraceLoggable*>& Objects() const noexcept;

 private:
    class CRep;
    std::shared_ptr<CRep> m_rep;
};

}  // namespace quorbel
