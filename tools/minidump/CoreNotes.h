#pragma once

#include <string>

#include "tools/minidump/CoreFile.h"

namespace quorbel {

/// The notes of a core: the process, the fault, the mapped files, and each thread with its registers.
std::string MakeCoreNotes(const CDumpContent& content);

}  // namespace quorbel
