#pragma once

#include <filesystem>
#include <string>

#include "platform/service_manager/ServiceManager.h"

namespace quorbel {

/// The name of a service's unit.
std::string UnitName(const std::wstring& serviceName);

/// The unit file of a service. InvalidName when a name or the program's path has control characters, which
/// cannot stand in one.
CResult<std::string> UnitFileText(const CServiceDescription& description);

/// Writes a new unit file at once: nobody sees half of it. AlreadyExists when there is one; after any other
/// failure there is none.
ErrorCode CreateUnitFile(const std::filesystem::path& folder, const std::string& unit,
                         const std::string& text);
/// Success when there is none.
ErrorCode RemoveUnitFile(const std::filesystem::path& folder, const std::string& unit);

}  // namespace quorbel
