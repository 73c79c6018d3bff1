#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace quorbel {

using Environment = std::vector<std::pair<std::string, std::string>>;

/// Who a process finds to have started it.
enum class StartedBy { User, ServiceManager };

/// A program of ours, running. It is killed at the end if it still runs.
class CSubprocess {
 public:
    /// Starts build/…/bin/`program`; its standard output and error go to files when given, and
    /// its standard input comes from one. No file that it writes grows beyond `largestFile` bytes. It gets
    /// `listening` as a service manager passes a socket (sd_listen_fds(3)). One that the service manager
    /// started is told so.
    CSubprocess(const std::string& program, const std::vector<std::string>& arguments,
                const Environment& environment, const std::filesystem::path& output = "/dev/null",
                const std::filesystem::path& error = "/dev/null",
                const std::filesystem::path& input = "/dev/null",
                std::optional<std::uint64_t> largestFile = std::nullopt,
                std::optional<int> listening = std::nullopt, StartedBy startedBy = StartedBy::User);
    ~CSubprocess();
    CSubprocess(const CSubprocess&) = delete;
    CSubprocess& operator=(const CSubprocess&) = delete;

    void Signal(int number) const;
    /// Waits for the end: the exit code, or minus the number of the signal that ended it.
    int Wait();

 private:
    pid_t m_process = -1;
};

/// Runs a program of ours to its end.
int RunProgram(const std::string& program, const std::vector<std::string>& arguments,
               const Environment& environment);

}  // namespace quorbel
