#include "platform/Event.h"
#include "platform/Lock.h"

namespace quorbel {
namespace {

TEST(Lock, LetsReadersInTogetherButNotBesideAWriter) {
    CReadWriteLock lock(LockRank::RoutingCache);
    const std::shared_lock reader(lock);
    std::thread([&] {
        const std::shared_lock second(lock, std::try_to_lock);
        EXPECT_TRUE(second.owns_lock());
    }).join();

    CReadWriteLock written(LockRank::RoutingCache);
    std::atomic<bool> gotIn = true;
    std::thread writer([&] {
        const std::lock_guard writing(written);
        std::thread([&] { gotIn = written.try_lock_shared(); }).join();
    });
    writer.join();
    EXPECT_FALSE(gotIn);
}

TEST(Lock, KeepsNewReadersOutWhileAWriterWaits) {
    CReadWriteLock lock(LockRank::RoutingCache);
    const auto written = CEvent::Create(EventReset::Manual).Value();
    lock.lock_shared();
    std::thread writer([&] {
        const std::lock_guard writing(lock);
        written->Set();
    });
    // Each of these readers overlaps the first. They are let in until the writer waits, and none after that;
    // a lock that prefers readers never ends this loop.
    std::thread([&] {
        while (lock.try_lock_shared()) lock.unlock_shared();
        EXPECT_FALSE(lock.try_lock_shared());
    }).join();
    EXPECT_FALSE(written->Test()) << "the first reader is still there";
    lock.unlock_shared();
    EXPECT_TRUE(WaitForAny({written.get()}).IsOk());
    writer.join();
    EXPECT_TRUE(lock.try_lock_shared());
    lock.unlock_shared();
}

TEST(Lock, CanBeTakenInTheOrderOfRanksAndGivenBackInAny) {
    CMutex outer(LockRank::NotFoundEvents);
    CReadWriteLock middle(LockRank::EventLog);
    CMutex inner(LockRank::Innermost);
    for (int i = 0; i < 2; ++i) {
        outer.lock();
        middle.lock_shared();
        outer.unlock();
        inner.lock();
        middle.unlock_shared();
        inner.unlock();
    }
    outer.lock();
    outer.unlock();
}

#ifndef NDEBUG

TEST(LockDeathTest, EndsWhoTakesALowerOrEqualRank) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CMutex high(LockRank::Registry);
    CMutex low(LockRank::RoutingCache);
    CReadWriteLock same(LockRank::Registry);
    const std::lock_guard held(high);
    EXPECT_DEATH(low.lock(), "out of order");
    EXPECT_DEATH(same.lock_shared(), "out of order");
    EXPECT_DEATH(same.try_lock_shared(), "out of order");
    EXPECT_DEATH(high.lock(), "out of order");
}

TEST(LockDeathTest, EndsWhoGivesBackWhatItDoesNotHold) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CMutex mutex(LockRank::Registry);
    EXPECT_DEATH(mutex.unlock(), "not held");
}

TEST(Lock, CountsAThreadsLocksForThatThreadAlone) {
    CMutex high(LockRank::Registry);
    CMutex low(LockRank::RoutingCache);
    const std::lock_guard held(high);
    std::thread([&] { const std::lock_guard other(low); }).join();
}

TEST(Lock, ForgetsALockThatATryDidNotGet) {
    CReadWriteLock tried(LockRank::Registry);
    CMutex low(LockRank::RoutingCache);
    const std::lock_guard writing(tried);
    std::thread([&] {
        EXPECT_FALSE(tried.try_lock_shared());
        const std::lock_guard lower(low);
    }).join();
}

#endif

}  // namespace
}  // namespace quorbel
