#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quorbel {

/// A record as the decoder below finds it.
struct CDecodedRecord {
    std::uint64_t number = 0;
    std::uint64_t time = 0;
    std::uint32_t id = 0;
    std::string object;
    std::string arguments;  ///< encoded
    bool operator==(const CDecodedRecord&) const = default;
};

/// A trace file taken apart in the plainest way, by code that shares nothing with what writes it. Throws
/// std::runtime_error (or out_of_range) for a file that makes no sense.
struct CDecodedFile {
    std::vector<std::string> strings;
    std::vector<std::uint64_t> blocks;  ///< the number of each one's first record
    std::vector<CDecodedRecord> records;
};
CDecodedFile DecodeTraceFile(const std::string& bytes);

/// The content of one compressed block at `offset`, which is moved behind it.
std::string DecodeBlock(const std::string& bytes, std::size_t& offset);

}  // namespace quorbel
