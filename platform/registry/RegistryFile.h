#pragma once

#include "platform/sqlite/Database.h"

namespace quorbel {

/// Creates the registry file with an empty tree when there is none, with mode 0600 whatever the process's
/// mask. It appears whole or not at all.
ErrorCode EnsureRegistryFile(const std::filesystem::path& file);

/// Connects to a registry file. RegistryCorrupt when it is no registry, NotSupported when it is one of a
/// later version.
CResult<std::unique_ptr<CDatabase>> ConnectRegistryFile(const std::filesystem::path& file,
                                                        const CDatabaseOptions& options);

}  // namespace quorbel
