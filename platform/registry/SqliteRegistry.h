#pragma once

#include <chrono>
#include <filesystem>
#include <memory>

#include "platform/registry/Key.h"

namespace quorbel {

struct CRegistryOptions {
    /// How long an operation waits for another process's transaction before it fails with Busy.
    std::chrono::milliseconds busyTimeout{5000};
    /// How often watches look for changes that no writer has announced (it was killed).
    std::chrono::milliseconds watchInterval{1000};
    /// The file grows no further; what would need more fails with DiskFull.
    std::uint64_t maximumBytes = std::uint64_t{1} << 30;
};

/// Opens the registry kept in `folder`, which must exist (files "registry.db", mode 0600, and
/// "registry.changed"), creating both when they are missing. Errors: AccessDenied, Busy, DiskFull,
/// RegistryCorrupt (not a registry file), NotSupported (one of a later version), RegistryIoFailed,
/// CannotOpenRegistry, and those of creating a file.
///
/// Keys hold a share of the registry: it closes when the last of them is gone.
CResult<std::shared_ptr<IRegistry>> OpenSqliteRegistry(const std::filesystem::path& folder,
                                                       const CRegistryOptions& options = {});

}  // namespace quorbel
