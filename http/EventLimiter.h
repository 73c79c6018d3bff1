#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/Lock.h"

namespace quorbel {

/// Keeps a flood of refused requests out of the event log: at most kPerSecond entries a second are written;
/// the next one written says how many were not. Safe to use from any thread.
class CEventLimiter {
 public:
    static constexpr unsigned kPerSecond = 10;

    explicit CEventLimiter(IClock& clock) : m_clock(clock) {}

    /// How many entries were left out before the one that may be written now; none when it may not.
    std::optional<std::uint64_t> Admit();
    /// Calls `write` with `text`, to which the count of the entries left out before is added, or leaves it
    /// out.
    void Write(const std::wstring& text, const std::function<void(const std::wstring& text)>& write);

 private:
    IClock& m_clock;
    CMutex m_lock{LockRank::NotFoundEvents};  // guards what follows
    std::chrono::nanoseconds m_second{0};     // when the current second began
    unsigned m_written = 0;                   // in the current second
    std::uint64_t m_leftOut = 0;              // since the last entry written
};

}  // namespace quorbel
