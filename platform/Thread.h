#pragma once

#include <cstdint>
#include <functional>
#include <thread>

#include "platform/Error.h"

namespace quorbel {

/// Starts a thread of ours: named (the system keeps 15 bytes of a name), with all signals left to the main
/// thread, but for those that a thread raises by its own fault, and with a stack of its own for handling
/// those.
CResult<std::thread> StartThread(const char* name, std::function<void()> work);

/// Makes the calling thread, and those that it starts from now on, give way to the others of the process when
/// the processors are busy.
void GiveWayToOtherThreads() noexcept;

/// Gives the calling thread another name.
void NameThisThread(const char* name) noexcept;

/// The system's number of the calling thread.
std::uint32_t CurrentThreadId() noexcept;

}  // namespace quorbel
