#include "platform/Precondition.h"

#include <atomic>
#include <cstdlib>

namespace quorbel {

namespace {

std::atomic<void (*)()> g_trap = nullptr;

}  // namespace

void SetInvalidParameterTrap(void (*trap)()) noexcept {
    g_trap = trap;
}

void InvalidParameter() {
    if (void (*const trap)() = g_trap) trap();
    std::abort();
}

}  // namespace quorbel
