#include <latch>
#include <signal.h>

#include "platform/Clock.h"
#include "platform/Event.h"

namespace quorbel {
namespace {

using std::chrono::milliseconds;

std::shared_ptr<CEvent> NewEvent(EventReset reset) {
    return CEvent::Create(reset).Value();
}

TEST(Event, StaysSetUntilClearedWhenManual) {
    const auto event = NewEvent(EventReset::Manual);
    EXPECT_FALSE(event->Test());
    event->Set();
    event->Set();
    EXPECT_TRUE(event->Test());
    EXPECT_TRUE(event->Test());
    EXPECT_TRUE(WaitForAny({event.get()}).IsOk());
    EXPECT_TRUE(event->Test()) << "a wait leaves it set for the others";
    event->Clear();
    EXPECT_FALSE(event->Test());
}

TEST(Event, IsClearedByTheOneThatSeesItWhenAutomatic) {
    const auto event = NewEvent(EventReset::Auto);
    EXPECT_FALSE(event->Test());
    event->Set();
    event->Set();
    EXPECT_TRUE(event->Test());
    EXPECT_FALSE(event->Test()) << "set twice is set once";
    event->Set();
    EXPECT_TRUE(WaitForAny({event.get()}, milliseconds(0)).IsOk());
    EXPECT_EQ(WaitForAny({event.get()}, milliseconds(0)).Error(), ErrorCode::WaitTimeout);
    event->Set();
    event->Clear();
    EXPECT_FALSE(event->Test());
}

TEST(Event, WakesAWaitWithTheFirstInTheOrderGivenAndLeavesTheOthersSet) {
    const auto first = NewEvent(EventReset::Auto);
    const auto second = NewEvent(EventReset::Auto);
    const auto third = NewEvent(EventReset::Manual);
    const auto wait = [&] { return WaitForAny({first.get(), second.get(), third.get()}, milliseconds(0)); };
    third->Set();
    second->Set();
    first->Set();
    EXPECT_EQ(wait().Value(), 0U);
    EXPECT_EQ(wait().Value(), 1U);
    EXPECT_EQ(wait().Value(), 2U);
    EXPECT_EQ(wait().Value(), 2U);
    third->Clear();
    EXPECT_EQ(wait().Error(), ErrorCode::WaitTimeout);
}

TEST(Event, TakesTimeOutsOfAnyLength) {
    const auto event = NewEvent(EventReset::Manual);
    for (const milliseconds past : {milliseconds(0), milliseconds(-1), milliseconds(-5'000'000'000)}) {
        EXPECT_EQ(WaitForAny({event.get()}, past).Error(), ErrorCode::WaitTimeout);
    }
    EXPECT_EQ(WaitForAny({event.get()}, milliseconds(1)).Error(), ErrorCode::WaitTimeout);
    // Longer than an int holds, a multiple of 2^32 that would be cut to nothing, and longer than the clock.
    for (const milliseconds future :
         {milliseconds(3'000'000'000), milliseconds(1LL << 32), milliseconds::max()}) {
        event->Clear();
        std::thread setter([&] { event->Set(); });
        EXPECT_TRUE(WaitForAny({event.get()}, future).IsOk()) << future.count();
        setter.join();
    }
}

TEST(Event, WakesExactlyOneOfTwoWaitersWhenAutomatic) {
    const auto event = NewEvent(EventReset::Auto);
    const auto stop = NewEvent(EventReset::Manual);
    const auto woken = NewEvent(EventReset::Auto);
    std::atomic<int> seen = 0;
    const auto waiter = [&] {
        while (WaitForAny({stop.get(), event.get()}).Value() == 1) {
            ++seen;
            woken->Set();
        }
    };
    std::thread first(waiter);
    std::thread second(waiter);
    constexpr int kRounds = 2'000;
    for (int round = 1; round <= kRounds; ++round) {
        event->Set();
        EXPECT_TRUE(WaitForAny({woken.get()}).IsOk());
        ASSERT_EQ(seen, round);
    }
    stop->Set();
    first.join();
    second.join();
    EXPECT_EQ(seen, kRounds);
}

/// Lets SIGUSR1 interrupt the calls under way instead of ending the process.
class CInterruptingSignal {
 public:
    CInterruptingSignal() {
        struct sigaction action {};
        action.sa_handler = [](int) { ++s_count; };
        EXPECT_EQ(::sigaction(SIGUSR1, &action, &m_before), 0);
    }
    ~CInterruptingSignal() { EXPECT_EQ(::sigaction(SIGUSR1, &m_before, nullptr), 0); }
    static int Count() { return s_count; }

 private:
    static inline std::atomic<int> s_count = 0;
    struct sigaction m_before {};
};

/// Runs `wait` on another thread, sends it signals while it waits, then sets the event; says whether the wait
/// had ended before that.
bool EndsEarlyUnderSignals(CEvent& event, const std::function<void()>& wait) {
    const CInterruptingSignal signals;
    std::atomic<bool> hasEnded = false;
    std::latch started(1);
    std::thread waiter([&] {
        started.count_down();
        wait();
        hasEnded = true;
    });
    started.wait();
    for (int i = 0; i < 200; ++i) {
        const int before = CInterruptingSignal::Count();
        EXPECT_EQ(::pthread_kill(waiter.native_handle(), SIGUSR1), 0);
        while (CInterruptingSignal::Count() == before && !hasEnded) std::this_thread::yield();
    }
    const bool hadEnded = hasEnded;
    event.Set();
    waiter.join();
    return hadEnded;
}

TEST(Event, WaitsOnAfterASignal) {
    const auto event = NewEvent(EventReset::Auto);
    EXPECT_FALSE(EndsEarlyUnderSignals(*event, [&] { EXPECT_TRUE(WaitForAny({event.get()}).IsOk()); }));
}

TEST(Clock, PausesOnAfterASignalAndLeavesTheWakingEventSet) {
    const auto wake = NewEvent(EventReset::Auto);
    EXPECT_FALSE(
        EndsEarlyUnderSignals(*wake, [&] { SystemClock().Pause(std::chrono::hours(1'000'000), *wake); }));
    EXPECT_TRUE(wake->Test());
    SystemClock().Pause(milliseconds(1), *wake);
}

TEST(Clock, CountsFileTimesFrom1601) {
    const std::pair<std::chrono::nanoseconds, std::uint64_t> cases[] = {
        {std::chrono::nanoseconds(0), 116'444'736'000'000'000},
        {std::chrono::nanoseconds(99), 116'444'736'000'000'000},
        {std::chrono::nanoseconds(100), 116'444'736'000'000'001},
        {std::chrono::nanoseconds(-1), 116'444'735'999'999'999},
        {std::chrono::seconds(1'700'000'000), 133'444'736'000'000'000},
    };
    for (const auto& [time, fileTime] : cases) EXPECT_EQ(ToFileTime(time), fileTime);
    const CUnixTime split = ToUnixTime(133'444'736'000'000'123);
    EXPECT_EQ(split.seconds, 1'700'000'000);
    EXPECT_EQ(split.fraction, 123U);
    const CUnixTime before = ToUnixTime(116'444'735'999'999'999);
    EXPECT_EQ(before.seconds, -1);
    EXPECT_EQ(before.fraction, 9'999'999U);
}

}  // namespace
}  // namespace quorbel
