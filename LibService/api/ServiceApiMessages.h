#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quorbel {

/// The messages between the service and its local clients. All integers are little-endian.
namespace service_api {

enum class ControlCode : std::uint32_t {
    ReadRecords = 0x000930C4,  ///< trace records from a number on
    ObjectName = 0x000930C8,   ///< the name of a logged object
};
/// Codes with this bit are for administrators.
inline constexpr std::uint32_t kAdministratorBit = 0x4000;

/// Statuses beside 0 and those of errors.
inline constexpr std::uint32_t kInvalidParameter = 0xC000000D;
inline constexpr std::uint32_t kAccessDenied = 0xC0000022;

// A request: 8 unused bytes, its identifier (8), 8 unused bytes, control code (4), input length (4), output
// length (4), the data area, which is 140 bytes longer than the input.
inline constexpr std::size_t kRequestId = 8;
inline constexpr std::size_t kControlCode = 24;
inline constexpr std::size_t kInputLength = 28;
inline constexpr std::size_t kOutputLength = 32;
inline constexpr std::size_t kDataArea = 36;
inline constexpr std::size_t kSmallestRequest = 176;

// In the data area of a request for records: the first number wanted (8), how long to wait in ms (4). In that
// of the answer: the number of the next record, then the entries.
inline constexpr std::size_t kFirstRecord = 8;
inline constexpr std::size_t kWaitTime = 16;
inline constexpr std::size_t kEntries = 8;
// In that of a request for a name: the object's key (8), then room for the name, padded with zeros.
inline constexpr std::size_t kObjectKey = 0;
inline constexpr std::size_t kObjectName = 8;
inline constexpr std::size_t kObjectNameSize = 16;

// An entry: number (8), time (8), trace identifier (4), 4 zeros, object key (8), length (4), 4 zeros,
// arguments.
inline constexpr std::size_t kEntrySize = 40;

// A reply: the request's identifier (8), status (4), data length (4), the data, 8 zeros.
inline constexpr std::size_t kReplyHead = 16;
inline constexpr std::size_t kReplyTail = 8;

/// The pipe's name, in the folder of pipes.
std::string PipeName(std::wstring_view serviceName);

/// The `size` (at most 8) bytes at an offset; they must be there.
std::uint64_t Get(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) noexcept;
void Put(std::span<std::uint8_t> bytes, std::size_t offset, std::uint64_t number, std::size_t size) noexcept;

}  // namespace service_api

}  // namespace quorbel
