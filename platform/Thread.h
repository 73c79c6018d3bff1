#pragma once

#include <functional>
#include <thread>

#include "platform/Error.h"

namespace quorbel {

/// Starts a thread of ours: named (the system keeps 15 bytes of a name) and with all signals left to the main
/// thread, but for those that a thread raises by its own fault.
CResult<std::thread> StartThread(const char* name, std::function<void()> work);

/// Makes the calling thread, and those that it starts from now on, give way to the others of the process when
/// the processors are busy.
void GiveWayToOtherThreads() noexcept;

/// Gives the calling thread another name.
void NameThisThread(const char* name) noexcept;

}  // namespace quorbel
