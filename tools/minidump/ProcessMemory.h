#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace quorbel {

/// A mapping of a process, as /proc tells it.
struct CMapping {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t offset = 0;  ///< in the file
    bool isReadable = false;
    bool isWritable = false;
    bool isExecutable = false;
    bool isShared = false;
    bool isChanged = false;  ///< holds pages that are in no file
    bool isKeptOut = false;  ///< is not to be in a dump, as its owner said, or is a device
    std::string path;        ///< of the file, or a name in brackets, or empty

    std::uint64_t Size() const noexcept { return end - begin; }
    bool IsOfFile() const noexcept { return path.starts_with('/'); }
    bool Contains(std::uint64_t address) const noexcept { return begin <= address && address < end; }
};

/// The mappings in the text of /proc/PID/smaps, in the order of their addresses. What is no such text is left
/// out.
std::vector<CMapping> ParseMappings(std::string_view smaps);

/// The memory of another process.
class CProcessMemory {
 public:
    static constexpr std::size_t kPage = 4096;

    explicit CProcessMemory(std::uint32_t process);

    /// True when all of it could be read.
    bool Read(std::uint64_t address, std::span<std::byte> bytes) const noexcept;
    /// False when no page in the range was ever used, so that it is all zeros. Begins and ends with a page.
    bool IsUsed(std::uint64_t begin, std::uint64_t end) const noexcept;

 private:
    const int m_process;
    const CFileDescriptor m_pages;
};

/// The whole content of a file of /proc; empty when it cannot be read.
std::string ReadProcessFile(std::uint32_t process, const char* name);

}  // namespace quorbel
