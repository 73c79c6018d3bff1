#pragma once

#include <memory>
#include <string>

#include "platform/service_manager/ServiceManager.h"

namespace quorbel {

/// systemd as the service manager: a service is a unit in /etc/systemd/system, the stop control is SIGTERM or
/// SIGINT (at the machine's shutdown as well), and reports go to the socket that $NOTIFY_SOCKET names.
CResult<std::unique_ptr<IServiceManager>> CreateSystemdManager();

/// What systemd is told of a status (sd_notify(3)).
std::string NotificationOf(const CServiceStatus& status);

}  // namespace quorbel
