#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/user.h>
#include <vector>

#include "platform/Error.h"

namespace quorbel {

/// A thread of another process that stands still.
struct CTracedThread {
    std::int32_t id = 0;
    int signal = 0;  ///< that was about to be delivered; it is when the thread goes on
    user_regs_struct registers{};
    user_fpregs_struct floatingPoint{};
    std::vector<std::byte> extendedState;  ///< all registers as XSAVE stores them; may be empty
};

/// Stops all threads of a process for as long as it lives. A thread may end at any time, also by a signal.
class CTracedThreads {
 public:
    CTracedThreads() = default;
    ~CTracedThreads() { Release(); }
    CTracedThreads(const CTracedThreads&) = delete;
    CTracedThreads& operator=(const CTracedThreads&) = delete;

    /// Stops the threads, `first` the first. What goes wrong with that one is an error, by words; others that
    /// cannot be stopped are left out.
    std::string Stop(std::uint32_t process, std::uint32_t first);
    void Release() noexcept;

    /// The one given first comes first.
    std::vector<CTracedThread>& Threads() noexcept { return m_threads; }

 private:
    ErrorCode StopOne(std::int32_t thread);
    bool StopNewOnes(std::uint32_t process);

    std::vector<CTracedThread> m_threads;
    std::vector<std::int32_t> m_seen;  ///< stopped or not
};

}  // namespace quorbel
