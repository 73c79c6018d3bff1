#pragma once

#include <filesystem>
#include <string>

#include "LibService/Status.h"
#include "platform/Event.h"

namespace quorbel {

/// Shows the activity of the running service of that name under a root folder, a record a line, on standard
/// output, until `close` is set or the service ends. `module` is its trace message module. Errors: system
/// errors; that no service runs is one of them.
CStatus ShowActivityAsText(const std::filesystem::path& root, const std::filesystem::path& module,
                           const std::wstring& serviceName, CEvent& close);

}  // namespace quorbel
