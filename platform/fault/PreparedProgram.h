#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <spawn.h>

#include "platform/Error.h"

namespace quorbel {

/// A program to be run when nothing may be allocated any more. It inherits standard error alone: its standard
/// input and output are empty, all signals are open and as they were.
class CPreparedProgram {
 public:
    static CResult<std::unique_ptr<CPreparedProgram>> Create(std::filesystem::path program);
    ~CPreparedProgram();
    CPreparedProgram(const CPreparedProgram&) = delete;
    CPreparedProgram& operator=(const CPreparedProgram&) = delete;

    const char* Path() const noexcept { return m_program.c_str(); }

    /// Runs the program with these arguments (Path is the first, null the last) and lets it trace this
    /// process. Returns when it has ended: GenFailure when not with 0, WaitTimeout when it had to be killed
    /// because the time had passed.
    ErrorCode Run(char* const* arguments, std::chrono::milliseconds patience) const noexcept;

 private:
    explicit CPreparedProgram(std::filesystem::path program) : m_program(std::move(program)) {}
    ErrorCode Prepare();

    const std::filesystem::path m_program;
    posix_spawn_file_actions_t m_files{};
    posix_spawnattr_t m_attributes{};
};

}  // namespace quorbel
