#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "LibService/trace/TraceFile.h"
#include "platform/Error.h"

namespace quorbel {

/// The folder that trace files are written to. Not synchronised.
class CTraceFolder {
 public:
    /// How many files of one service are kept; the oldest go when one more begins.
    static constexpr std::size_t kMostFiles = 1000;

    /// The files of this run bear the service's name and the time of its start (100 ns units since 1601), or
    /// the next second for which there are no files yet.
    CTraceFolder(std::filesystem::path path, std::string serviceName, std::uint64_t startTime);

    /// Writes or replaces the file with that number, for the owner's eyes only; a missing folder is created
    /// in its parent. Errors: those of the step that failed; the old file is then as it was.
    ErrorCode Write(std::uint32_t number, const CTraceFileImage& image);

    const std::filesystem::path& Path() const noexcept { return m_path; }

 private:
    std::wstring FileOf(std::uint32_t number) const;
    void RemoveOldest() const;

    const std::filesystem::path m_path;
    const std::string m_serviceName;
    std::string m_startTime;  // as it stands in the names
    std::uint32_t m_highestWritten = 0;
};

}  // namespace quorbel
