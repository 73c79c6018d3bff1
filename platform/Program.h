#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/Error.h"

namespace quorbel {

/// Full path of the running program's file.
CResult<std::filesystem::path> ProgramPath();

/// The system's number of this process.
std::uint32_t CurrentProcessId() noexcept;

}  // namespace quorbel
