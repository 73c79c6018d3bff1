#pragma once

#include <cstddef>
#include <signal.h>

namespace quorbel {

/// A stack of its own for the calling thread's signal handlers, so that a fault can be handled when the
/// thread's stack is used up. Made and destroyed on that thread; without memory for it the thread goes on
/// without.
class CAlternateStack {
 public:
    static constexpr std::size_t kSize = 64 << 10;

    CAlternateStack() noexcept;
    ~CAlternateStack();
    CAlternateStack(const CAlternateStack&) = delete;
    CAlternateStack& operator=(const CAlternateStack&) = delete;

 private:
    void* m_memory = nullptr;
    stack_t m_before{};
};

}  // namespace quorbel
