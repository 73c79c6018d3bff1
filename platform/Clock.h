#pragma once

#include <chrono>
#include <cstdint>

#include "platform/Event.h"

namespace quorbel {

/// Time, handed to whoever needs it, so that a test can turn it by hand.
class IClock {
 public:
    virtual ~IClock() = default;
    /// Time since an arbitrary start; it never goes back, counts suspended time and is never 0.
    virtual std::chrono::nanoseconds Steady() const = 0;
    /// Time of day in units of 100 nanoseconds since 1601-01-01 UTC.
    virtual std::uint64_t System() const = 0;
    /// Lets `duration` pass; returns early when `wake` is set (an automatic `wake` stays set).
    virtual void Pause(std::chrono::milliseconds duration, CEvent& wake) = 0;
};

/// The machine's clock.
IClock& SystemClock();

/// Seconds since 1970 and their fraction in 100 ns units, for texts.
struct CUnixTime {
    std::int64_t seconds;
    std::uint32_t fraction;
};
CUnixTime ToUnixTime(std::uint64_t fileTime) noexcept;
/// Back again.
std::uint64_t ToFileTime(CUnixTime time) noexcept;
/// Units of 100 nanoseconds since 1601 of a time since 1970, which may be negative.
std::uint64_t ToFileTime(std::chrono::nanoseconds sinceUnixStart) noexcept;

}  // namespace quorbel
