#pragma once

#include <filesystem>
#include <memory>

#include "platform/registry/Key.h"

namespace quorbel {

/// Opens the registry kept in `folder` (files "registry.db", mode 0600, and "registry.changed"), creating both
/// when they are missing. Errors: AccessDenied, Busy (locked for more than 5 seconds), DiskFull,
/// RegistryCorrupt (not a registry file), RegistryIoFailed.
///
/// Keys hold a share of the registry: it closes when the last of them is gone.
CResult<std::shared_ptr<IRegistry>> OpenSqliteRegistry(const std::filesystem::path& folder);

}  // namespace quorbel
