#include <atomic>
#include <gtest/gtest.h>
#include <new>
#include <pthread.h>

#include "LibService/MessageIds.h"
#include "LibService/WorkItems.h"
#include "platform/Thread.h"
#include "platform/com/Apartment.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/HandClock.h"

namespace quorbel {
namespace {

constexpr std::chrono::seconds kLong{60};

std::shared_ptr<CEvent> NewEvent(EventReset reset) {
    return CEvent::Create(reset).Value();
}

bool IsSetSoon(CEvent& event) {
    return WaitForAny({&event}, kLong).IsOk();
}

std::string NameOf(pthread_t thread) {
    std::array<char, 16> name{};
    ::pthread_getname_np(thread, name.data(), name.size());
    return name.data();
}

/// Work that says where it runs and lasts until it is let go.
struct CHeldWork {
    const std::shared_ptr<CEvent> started = NewEvent(EventReset::Auto);
    const std::shared_ptr<CEvent> letGo = NewEvent(EventReset::Manual);
    pthread_t thread{};
    std::string name;

    static void Run(void* argument) {
        auto& self = *static_cast<CHeldWork*>(argument);
        self.thread = ::pthread_self();
        self.name = NameOf(self.thread);
        self.started->Set();
        Ignore(WaitForAny({self.letGo.get()}));
    }
};

/// A thread set whose clock a test turns and whose threads it counts.
class ThreadSetTest : public ::testing::Test {
 protected:
    ThreadSetTest() { m_clock.RunFreely(false); }

    void Start(CHeldWork& work, const char* name = "Work") {
        ASSERT_TRUE(m_set->Run(&CHeldWork::Run, &work, name).IsOk());
        ASSERT_TRUE(IsSetSoon(*work.started));
    }
    void Finish(CHeldWork& work) {
        work.letGo->Set();
        ASSERT_TRUE(IsSetSoon(m_set->Idle()));
    }

    CHandClock m_clock;
    std::atomic<int> m_attempts = 0;
    std::atomic<int> m_ended = 0;
    std::atomic<int> m_failuresLeft = 0;
    std::unique_ptr<CThreadSet> m_set =
        CThreadSet::Create(m_clock,
                           [this](const char* name, std::function<void()> work) -> CResult<std::thread> {
                               ++m_attempts;
                               if (m_failuresLeft > 0) {
                                   --m_failuresLeft;
                                   return ErrorCode::NoSystemResources;
                               }
                               return StartThread(name, [this, work = std::move(work)] {
                                   work();
                                   ++m_ended;
                               });
                           })
            .Value();
};

TEST_F(ThreadSetTest, StartsAThreadOnlyWhenNoneIsIdle) {
    CHeldWork first;
    CHeldWork second;
    Start(first);
    Start(second);
    EXPECT_EQ(m_attempts, 2);
    EXPECT_FALSE(m_set->Taken().Test());
    Finish(first);
    CHeldWork third;
    Start(third);
    EXPECT_EQ(m_attempts, 2);
    EXPECT_TRUE(m_set->Taken().Test());
    EXPECT_TRUE(::pthread_equal(third.thread, first.thread));
    Finish(second);
    Finish(third);
}

TEST_F(ThreadSetTest, TakesTheThreadThatBecameIdleLast) {
    CHeldWork first;
    CHeldWork second;
    Start(first);
    Start(second);
    Finish(second);
    Finish(first);
    CHeldWork third;
    Start(third);
    EXPECT_TRUE(::pthread_equal(third.thread, first.thread));
    Finish(third);
}

TEST_F(ThreadSetTest, NamesAThreadAfterItsWorkAndNoneBetween) {
    CHeldWork work;
    Start(work, "RegistryChangeWorker");
    EXPECT_EQ(work.name, "RegistryChangeW");
    Finish(work);
    EXPECT_EQ(NameOf(work.thread), "None");
}

TEST_F(ThreadSetTest, EndsAThreadAfterTenSecondsWithoutWork) {
    CHeldWork first;
    Start(first);
    ASSERT_TRUE(m_clock.PausesAfter([&] { Finish(first); }));
    m_clock.Turn(CThreadSet::kIdleTime - std::chrono::milliseconds(1));
    CHeldWork second;
    Start(second);
    EXPECT_EQ(m_attempts, 1) << "it was still there";
    EXPECT_TRUE(m_set->Taken().Test());
    ASSERT_TRUE(m_clock.PausesAfter([&] { Finish(second); }));
    m_clock.Turn(CThreadSet::kIdleTime);
    ASSERT_TRUE(IsSetSoon(m_set->Taken()));
    CHeldWork third;
    Start(third);
    EXPECT_EQ(m_attempts, 2);
    Finish(third);
}

TEST_F(ThreadSetTest, EndsItsIdleThreadsWithItself) {
    CHeldWork first;
    CHeldWork second;
    Start(first);
    Start(second);
    Finish(first);
    Finish(second);
    m_set.reset();
    EXPECT_EQ(m_ended, 2);
}

TEST_F(ThreadSetTest, DoesNotWaitForWorkWhenItGoes) {
    CHeldWork work;
    Start(work);
    m_set.reset();
    EXPECT_EQ(m_ended, 0);
    work.letGo->Set();
    while (m_ended == 0) std::this_thread::yield();
}

TEST_F(ThreadSetTest, TriesAHundredTimesAgainToStartAThread) {
    const CRecordedEventLog log;
    m_clock.RunFreely(true);
    m_failuresLeft = 101;
    const CStatus failed = m_set->Run(&CHeldWork::Run, nullptr, "Work");
    ASSERT_FALSE(failed.IsOk());
    EXPECT_EQ(failed.Error()->GetCode(), ToNumber(ErrorCode::NoSystemResources));
    EXPECT_EQ(m_attempts, 101);

    m_attempts = 0;
    m_failuresLeft = 100;
    CHeldWork work;
    Start(work);
    EXPECT_EQ(m_attempts, 101);
    Finish(work);
}

TEST(ThreadSet, PausesATenthOfASecondBetweenAttempts) {
    CHandClock clock;
    clock.RunFreely(false);
    std::atomic<int> attempts = 0;
    const auto set = CThreadSet::Create(clock, [&](const char*, const std::function<void()>&) {
                         ++attempts;
                         return CResult<std::thread>(ErrorCode::NoSystemResources);
                     }).Value();
    std::thread caller;
    ASSERT_TRUE(clock.PausesAfter([&] {
        caller = std::thread([&] { EXPECT_FALSE(set->Run([](void*) {}, nullptr, "Work").IsOk()); });
    }));
    for (int attempt = 1; attempt <= CThreadSet::kStartRetries; ++attempt) {
        EXPECT_EQ(attempts, attempt);
        const auto turn = [&] { clock.Turn(CThreadSet::kStartPause); };
        if (attempt < CThreadSet::kStartRetries) {
            ASSERT_TRUE(clock.PausesAfter(turn));
        } else {
            turn();
        }
    }
    caller.join();
}

TEST(ThreadSet, ReportsThatMemoryIsShort) {
    const CRecordedEventLog log;
    const auto set =
        CThreadSet::Create(
            SystemClock(),
            [](const char*, const std::function<void()>&) -> CResult<std::thread> { throw std::bad_alloc(); })
            .Value();
    const CStatus status = set->Run([](void*) {}, nullptr, "Work");
    ASSERT_FALSE(status.IsOk());
    EXPECT_EQ(status.Error()->GetMessageId(), message::kAllocationFailed);
}

TEST(ThreadSet, SurvivesManyUsersWhileThreadsComeAndGo) {
    CHandClock clock;  // no pause lasts: every idle thread is just about to end
    const auto set = CThreadSet::Create(clock).Value();
    const auto items = CWorkItems::Create(*set).Value();
    std::atomic<int> done = 0;
    constexpr int kUsers = 4;
    constexpr int kItems = 250;
    std::vector<std::thread> users;
    for (int user = 0; user < kUsers; ++user) {
        users.emplace_back([&] {
            for (int item = 0; item < kItems; ++item) {
                const CStatus status = items->Run(
                    [&](CEvent&) {
                        ++done;
                        return CStatus();
                    },
                    "Work");
                EXPECT_TRUE(status.IsOk());
            }
        });
    }
    for (auto& user : users) user.join();
    items->Wait();
    EXPECT_EQ(done, kUsers * kItems);
}

class WorkItems : public ::testing::Test {
 protected:
    void RunOne(const CWorkItems::Work& work) {
        ASSERT_TRUE(m_items->Run(work, "Work").IsOk());
        m_items->Wait();
    }
    /// The one event written since, as identifier and first string.
    std::pair<std::uint32_t, std::wstring> TheEvent() {
        const auto entries = m_log.Take();
        EXPECT_EQ(entries.size(), 1U);
        if (entries.empty()) return {};
        return {entries[0].id, entries[0].strings.empty() ? L"" : entries[0].strings[0]};
    }

    CRecordedEventLog m_log;
    const std::unique_ptr<CThreadSet> m_set = CThreadSet::Create(SystemClock()).Value();
    const std::unique_ptr<CWorkItems> m_items = CWorkItems::Create(*m_set).Value();
};

TEST_F(WorkItems, RunUntilTheyAreStoppedAndWaitedFor) {
    EXPECT_TRUE(m_items->NoWorkRunning().Test());
    std::atomic<int> stopped = 0;
    for (int item = 0; item < 3; ++item) {
        const CStatus status = m_items->Run(
            [&](CEvent& stop) {
                if (WaitForAny({&stop}).IsOk()) ++stopped;
                return CStatus();
            },
            "Work");
        ASSERT_TRUE(status.IsOk());
    }
    EXPECT_FALSE(m_items->NoWorkRunning().Test());
    m_items->Stop();
    m_items->Wait();
    EXPECT_EQ(stopped, 3);
    EXPECT_TRUE(m_items->NoWorkRunning().Test());
    EXPECT_TRUE(m_log.Take().empty());
}

TEST_F(WorkItems, WriteTheirFailureToTheEventLogBeforeTheyCountAsEnded) {
    RunOne([](CEvent&) { return SystemError(ErrorCode::DiskFull); });
    EXPECT_EQ(TheEvent(), std::pair(message::kSystemError, std::wstring(L"112")));
}

TEST_F(WorkItems, ReportAnExceptionThatLeavesThem) {
    RunOne([](CEvent&) -> CStatus { throw std::runtime_error("no more of it"); });
    EXPECT_EQ(TheEvent(), std::pair(message::kCaughtException, std::wstring(L"no more of it")));
    bool ranAgain = false;
    RunOne([&](CEvent&) {
        ranAgain = true;
        return CStatus();
    });
    EXPECT_TRUE(ranAgain);
}

TEST_F(WorkItems, AreSkippedOnAThreadThatIsInTheApartmentAlready) {
    CHandClock clock;
    clock.RunFreely(false);
    const auto set = CThreadSet::Create(clock).Value();
    std::unique_ptr<CComApartment> left;
    const auto enter = [](void* apartment) {
        *static_cast<std::unique_ptr<CComApartment>*>(apartment) = std::make_unique<CComApartment>();
    };
    const auto leave = [](void* apartment) {
        static_cast<std::unique_ptr<CComApartment>*>(apartment)->reset();
    };
    ASSERT_TRUE(set->Run(enter, &left, "Work").IsOk());
    ASSERT_TRUE(IsSetSoon(set->Idle()));
    const auto items = CWorkItems::Create(*set).Value();
    bool ran = false;
    ASSERT_TRUE(items
                    ->Run(
                        [&](CEvent&) {
                            ran = true;
                            return CStatus();
                        },
                        "Work")
                    .IsOk());
    items->Wait();
    EXPECT_FALSE(ran);
    EXPECT_EQ(TheEvent(), std::pair(message::kSystemError, std::wstring(L"0x00000001")));
    ASSERT_TRUE(IsSetSoon(set->Idle()));
    ASSERT_TRUE(set->Run(leave, &left, "Work").IsOk());
    ASSERT_TRUE(IsSetSoon(set->Idle()));
}

TEST_F(WorkItems, ThatCannotBeStartedDoNotCount) {
    const auto set =
        CThreadSet::Create(
            SystemClock(),
            [](const char*, const std::function<void()>&) -> CResult<std::thread> { throw std::bad_alloc(); })
            .Value();
    const auto items = CWorkItems::Create(*set).Value();
    EXPECT_FALSE(items->Run([](CEvent&) { return CStatus(); }, "Work").IsOk());
    EXPECT_TRUE(items->NoWorkRunning().Test());
}

TEST_F(WorkItems, ThatFindNoMemoryGiveTheSizeWanted) {
    struct CGreedy {
        CGreedy() = default;
        CGreedy(const CGreedy& other) : isCopied(true) {
            if (other.isCopied) throw std::bad_alloc();
        }
        CStatus operator()(CEvent&) const { return {}; }
        bool isCopied = false;
    };
    const CWorkItems::Work greedy = CGreedy();
    const CStatus status = m_items->Run(greedy, "Work");
    ASSERT_FALSE(status.IsOk());
    EXPECT_EQ(status.Error()->GetMessageId(), message::kAllocationFailed);
    ASSERT_EQ(status.Error()->GetInsertCount(), 1U);
    EXPECT_GT(std::stoul(status.Error()->GetInsert(0)), sizeof(CWorkItems::Work));
    EXPECT_TRUE(m_items->NoWorkRunning().Test());
}

}  // namespace
}  // namespace quorbel
