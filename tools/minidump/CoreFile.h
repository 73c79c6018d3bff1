#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/fault/FaultRecord.h"
#include "tools/minidump/ProcessMemory.h"
#include "tools/minidump/TracedThreads.h"

namespace quorbel {

/// What a dump is made of. The threads stand still.
struct CDumpContent {
    std::uint32_t process = 0;
    std::vector<CTracedThread>& threads;  ///< the faulting one first
    std::optional<CFaultRecord> fault;    ///< whose registers become those of the first thread
    std::vector<CMapping> mappings;
    const CProcessMemory& memory;
};

/// So much memory that is not zero is stored at most.
inline constexpr std::uint64_t kLargestDump = 256ULL << 20;

/// Writes an ELF core of the process: all threads with their registers, and memory up to `limit` bytes,
/// stacks first, then the modules' data, then the rest. Pages of zeros are holes in the file.
ErrorCode WriteCore(int file, const CDumpContent& content, std::uint64_t limit = kLargestDump);

}  // namespace quorbel
