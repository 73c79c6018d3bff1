#pragma once

#include <memory>

#include "platform/Error.h"
#include "platform/Event.h"

namespace quorbel {

/// Makes SIGINT and SIGTERM set the event instead of ending the process, and ignores SIGPIPE and SIGHUP. Once per
/// process.
ErrorCode SetOnStopSignals(std::shared_ptr<CEvent> stop);

}  // namespace quorbel
