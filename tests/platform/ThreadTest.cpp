#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/Thread.h"

namespace quorbel {
namespace {

TEST(Thread, IsNamedAndLeavesAllSignalsButItsOwnFaultsToOthers) {
    sigset_t before;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &before);
    sigset_t inside;
    ::sigemptyset(&inside);
    std::string name(16, '\0');
    auto thread = StartThread("ANameOfMoreThan15Bytes", [&] {
        ::pthread_sigmask(SIG_BLOCK, nullptr, &inside);
        ::pthread_getname_np(::pthread_self(), name.data(), name.size());
    });
    ASSERT_TRUE(thread.IsOk());
    std::move(thread).Value().join();
    EXPECT_STREQ(name.c_str(), "ANameOfMoreThan");
    for (int blocked : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGCHLD, SIGUSR1, SIGALRM, SIGXFSZ})
        EXPECT_EQ(::sigismember(&inside, blocked), 1) << blocked;
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        EXPECT_EQ(::sigismember(&inside, fault), 0) << fault;
    sigset_t after;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &after);
    for (int number = 1; number < 32; ++number)
        EXPECT_EQ(::sigismember(&after, number), ::sigismember(&before, number)) << number;
}

int Niceness() {
    return ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
}

TEST(Thread, GivesWayAloneWithThoseThatItStarts) {
    const int before = Niceness();
    int own = before;
    int started = before;
    auto thread = StartThread("Low", [&] {
        GiveWayToOtherThreads();
        own = Niceness();
        std::thread([&] { started = Niceness(); }).join();
    });
    ASSERT_TRUE(thread.IsOk());
    std::move(thread).Value().join();
    EXPECT_GT(own, before);
    EXPECT_EQ(started, own);
    EXPECT_EQ(Niceness(), before);
}

}  // namespace
}  // namespace quorbel
