#pragma once

#include <filesystem>
#include <memory>

#include "platform/Error.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// The folder that everything the platform stores is under, created when it is missing (mode 0711: others may
/// pass through it to what is open to them): $QUORBEL_ROOT, else /var/lib/quorbel for the superuser, else
/// $XDG_STATE_HOME/quorbel, else ~/.local/state/quorbel. An absolute path. PathNotFound when none of these is
/// known, BadPathname when the variable's path is relative.
CResult<std::filesystem::path> OpenRootFolder();

/// The registry in "registry" (mode 0700) under the root folder. AccessDenied when that folder belongs to
/// another user than the superuser or this process's, or others may write to it.
CResult<std::shared_ptr<IRegistry>> OpenRootRegistry();

/// "certificates" under the root folder (mode 0700, created when it is missing), for the files of
/// certificates and their keys.
CResult<std::filesystem::path> OpenCertificatesFolder();

/// "pipe" under the root folder (mode 0711, created when it is missing), for the named pipes of services.
CResult<std::filesystem::path> OpenPipesFolder();

/// "keys" under the root folder (mode 0700, created when it is missing), for the keys that the service seals
/// what it stores with. AccessDenied as for the registry's folder.
CResult<std::filesystem::path> OpenKeysFolder();

}  // namespace quorbel
