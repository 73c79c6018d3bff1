#pragma once

#include <memory>

#include "platform/Error.h"
#include "platform/Event.h"

namespace quorbel {

/// Makes a write beyond the process's limit of file size fail (FileTooLarge) instead of ending the process.
ErrorCode IgnoreFileSizeSignal();

/// Makes SIGINT and SIGTERM set the event instead of ending the process, and ignores SIGPIPE, SIGHUP and the
/// signal of the limit of file size. Once per process.
ErrorCode SetOnStopSignals(std::shared_ptr<CEvent> stop);

}  // namespace quorbel
