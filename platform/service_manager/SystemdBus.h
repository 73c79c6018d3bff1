#pragma once

#include <memory>
#include <string>

#include "platform/Error.h"

namespace quorbel {

/// What systemd is asked for over the system bus. Units are named in full ("NAME.service"). For one thread at
/// a time. Errors are those of the bus; AccessDenied without the right to do it.
class ISystemdBus {
 public:
    virtual ~ISystemdBus() = default;
    /// Has the unit files read anew.
    virtual ErrorCode Reload() = 0;
    /// Has the unit started with the system from now on, or no longer. The manager knows after Reload.
    virtual ErrorCode Enable(const std::string& unit) = 0;
    virtual ErrorCode Disable(const std::string& unit) = 0;
    /// Begins to stop the unit.
    virtual ErrorCode Stop(const std::string& unit) = 0;
    /// Has systemd forget that the unit failed.
    virtual ErrorCode ResetFailed(const std::string& unit) = 0;
    /// "not-found" for a unit that there is not, "loaded", "masked"...
    virtual CResult<std::string> LoadState(const std::string& unit) = 0;
    /// "inactive", "activating", "active", "reloading", "deactivating", "failed", "maintenance".
    virtual CResult<std::string> ActiveState(const std::string& unit) = 0;
};

/// ServiceManagerUnavailable when systemd is not this machine's init process, or the bus is not there.
CResult<std::unique_ptr<ISystemdBus>> ConnectToSystemd();

}  // namespace quorbel
