#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "LibService/ServiceLogger.h"
#include "LibService/Status.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// How a service traces, as HKEY_LOCAL_MACHINE\Software\Quorbel\<display name> says. A value that is missing
/// or of another type leaves the default.
struct CTraceSettings {
    /// "Log file directory": the folder of trace files and crash reports. One that is not absolute is taken
    /// below the root folder, as is the default.
    std::filesystem::path folder;
    CTraceLevelMask mask;                             ///< "Log level"
    std::uint32_t span = CTraceMemory::kDefaultSpan;  ///< "Log size": records kept in memory; 0 for no limit
    /// "Administrators": the group whose members may give the service's API commands that are not for
    /// everybody.
    std::string administrators;

    static CTraceSettings Read(const IKey& localMachine, std::wstring_view displayName,
                               const std::filesystem::path& root);
};

/// Reads the trace message module of a service into the logger: "Trc", the service's name and ".dll", beside
/// the program, else behind the text "installed" of HKEY_LOCAL_MACHINE\SOFTWARE\Quorbel\COM API. Errors:
/// system errors.
CStatus LoadTraceModule(CServiceLogger& trace, const IKey& localMachine, std::wstring_view serviceName,
                        const std::filesystem::path& programFolder);

}  // namespace quorbel
