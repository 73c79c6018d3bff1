#include "platform/fault/AlternateStack.h"

#include <sys/mman.h>

#include "platform/Error.h"

namespace quorbel {

namespace {

constexpr std::size_t kGuard =
    4096;  // below the stack: what overflows it is a fault, and not another's memory
constexpr std::size_t kMapped = kGuard + CAlternateStack::kSize;

}  // namespace

CAlternateStack::CAlternateStack() noexcept {
    void* const memory =
        ::mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) return;
    Ignore(::mprotect(memory, kGuard, PROT_NONE));
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(memory) + kGuard;
    stack.ss_size = kSize;
    if (::sigaltstack(&stack, &m_before) == 0) {
        m_memory = memory;
    } else {
        Ignore(::munmap(memory, kMapped));
    }
}

CAlternateStack::~CAlternateStack() {
    if (!m_memory) return;
    // What was there before may be somebody's who takes it away at the thread's end.
    Ignore(::sigaltstack(&m_before, nullptr));
    Ignore(::munmap(m_memory, kMapped));
}

}  // namespace quorbel
