#pragma once

#include <filesystem>

#include "platform/Error.h"

namespace quorbel {

/// Full path of the running program's file.
CResult<std::filesystem::path> ProgramPath();

}  // namespace quorbel
