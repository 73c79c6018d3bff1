#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/registry/Key.h"
#include "tools/qbctl/Terminal.h"

namespace quorbel {

/// The path under HKEY_LOCAL_MACHINE of a key as typed; none, after saying so, when it begins with neither
/// HKEY_LOCAL_MACHINE nor HKLM.
std::optional<std::wstring> ParseKey(std::wstring_view typed);

/// "HKEY_LOCAL_MACHINE\..." for a path under it.
std::wstring FullName(std::wstring_view path);

/// Runs `work` with the root folder's registry, or says why that cannot be opened.
ExitCode WithRegistry(const std::function<ExitCode(IRegistry&)>& work);

/// Runs `work`, which gives the failure it has reported or Success, in one transaction.
ExitCode WithTransaction(const std::function<ExitCode(IKey& root)>& work);

}  // namespace quorbel
