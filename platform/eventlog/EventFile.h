#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>
#include <sys/types.h>

#include "platform/Error.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

inline constexpr const char* kEventFile = "events.jsonl";
inline constexpr const char* kPreviousEventFile = "events.1.jsonl";

/// Whoever can read the file can lock it: a writer, which may be answering a request, is held up no longer
/// than this, and then drops its line.
inline constexpr std::chrono::milliseconds kWriterPatience{50};
/// A reader waits longer for the writers.
inline constexpr std::chrono::milliseconds kReaderPatience{2000};

/// Appends whole lines to a file that several processes and threads share, and lets the file begin anew when
/// it would become too large. What fails is how it was: no part of a line ever stays.
class CEventFile {
 public:
    struct COptions {
        std::uint64_t limit = 16 << 20;  ///< a line that would make the file larger begins a new one
        std::chrono::milliseconds patience =
            kWriterPatience;  ///< how long to wait for others that lock the file
        std::function<ssize_t(int, const void*, std::size_t)> write = ::write;
    };
    explicit CEventFile(std::filesystem::path folder) : CEventFile(std::move(folder), COptions()) {}
    CEventFile(std::filesystem::path folder, COptions options)
        : m_folder(std::move(folder)), m_options(std::move(options)), m_file(m_folder / kEventFile) {}

    /// Appends a line and its line end. Busy when others keep the file locked.
    ErrorCode Append(std::string_view line);
    /// Appends a line that has its line end, without allocating; it waits neither for others that lock the
    /// file nor does it begin a new one.
    void AppendLastWords(std::string_view line) const noexcept;

 private:
    CResult<CFileDescriptor> OpenForAppending(std::size_t length) const;

    const std::filesystem::path m_folder;
    const COptions m_options;
    const std::filesystem::path m_file;
};

/// Opens the file (flags as for open) and locks it (operation as for flock) while it bears that name; Busy
/// when that takes longer than `patience`.
CResult<CFileDescriptor> OpenLocked(const std::filesystem::path& file, int flags, int operation,
                                    std::chrono::milliseconds patience = kReaderPatience);

}  // namespace quorbel
