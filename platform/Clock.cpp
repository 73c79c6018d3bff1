#include "platform/Clock.h"

#include <time.h>

namespace quorbel {

namespace {

constexpr std::uint64_t kUnitsPerSecond = 10'000'000;
constexpr std::uint64_t kSecondsFrom1601To1970 = 11'644'473'600;

timespec Read(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return now;
}

class CSystemClock final : public IClock {
 public:
    std::chrono::nanoseconds Steady() const override {
        const timespec now = Read(CLOCK_BOOTTIME);
        return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec + 1);
    }
    std::uint64_t System() const override {
        const timespec now = Read(CLOCK_REALTIME);
        return (static_cast<std::uint64_t>(now.tv_sec) + kSecondsFrom1601To1970) * kUnitsPerSecond +
               static_cast<std::uint64_t>(now.tv_nsec) / 100;
    }
    void Pause(std::chrono::milliseconds duration, CEvent& wake) override { WaitUntilSet(wake, duration); }
};

}  // namespace

IClock& SystemClock() {
    static CSystemClock clock;
    return clock;
}

std::uint64_t ToFileTime(std::chrono::nanoseconds sinceUnixStart) noexcept {
    const auto units =
        std::chrono::floor<std::chrono::duration<std::int64_t, std::ratio<1, kUnitsPerSecond>>>(
            sinceUnixStart);
    return static_cast<std::uint64_t>(units.count()) + kSecondsFrom1601To1970 * kUnitsPerSecond;
}

std::uint64_t ToFileTime(CUnixTime time) noexcept {
    return (static_cast<std::uint64_t>(time.seconds) + kSecondsFrom1601To1970) * kUnitsPerSecond +
           time.fraction;
}

CUnixTime ToUnixTime(std::uint64_t fileTime) noexcept {
    return {static_cast<std::int64_t>(fileTime / kUnitsPerSecond) -
                static_cast<std::int64_t>(kSecondsFrom1601To1970),
            static_cast<std::uint32_t>(fileTime % kUnitsPerSecond)};
}

}  // namespace quorbel
