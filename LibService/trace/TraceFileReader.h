#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace quorbel {

/// A record of a trace file.
struct CTraceFileRecord {
    std::uint64_t number = 0;
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    std::string object;                   ///< name of the object that wrote it
    std::vector<std::uint8_t> arguments;  ///< encoded (TraceArguments.h)
};

/// Where a damaged file stops making sense.
struct CTraceDamage {
    std::size_t offset = 0;  ///< of the part of the file that cannot be read, in bytes
    std::string what;        ///< names that part
};

/// What a trace file holds.
struct CTraceFileContent {
    std::map<std::string, std::string> headers;
    std::vector<CTraceFileRecord> records;
    std::optional<CTraceDamage> damage;  ///< the records before it are sound
};

/// Reads the bytes of a trace file, whatever they are, as far as they make sense.
CTraceFileContent ReadTraceFile(std::span<const std::uint8_t> bytes);

}  // namespace quorbel
