#pragma once

#include <functional>
#include <thread>

#include "platform/Error.h"

namespace quorbel {

/// Starts a thread of ours: named (the system keeps 15 bytes of a name) and with the stop signals left to the main
/// thread.
CResult<std::thread> StartThread(const char* name, std::function<void()> work);

}  // namespace quorbel
