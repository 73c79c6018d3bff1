#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <semaphore>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "auth/users/PasswordHashQueue.h"
#include "platform/Waiting.h"

namespace quorbel {
namespace {

/// Lets hashes begin at once, and end when the test opens it.
class CHeldHasher final : public IPasswordHasher {
 public:
    CResult<PasswordHash> Hash(std::string_view password, const PasswordSalt& salt) override {
        std::unique_lock lock(m_lock);
        m_begun.emplace_back(password);
        m_most = std::max(m_most, ++m_running);
        m_niceness = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_isOpen; });
        --m_running;
        if (password == "fails") return ErrorCode::NotEnoughMemory;
        return PasswordHash{static_cast<unsigned char>(password[0]), salt[0]};
    }

    void WaitUntilBegun(std::size_t count) {
        std::unique_lock lock(m_lock);
        m_changed.wait(lock, [&] { return m_begun.size() >= count; });
    }
    void Open() {
        const std::lock_guard lock(m_lock);
        m_isOpen = true;
        m_changed.notify_all();
    }
    std::vector<std::string> Begun() {
        const std::lock_guard lock(m_lock);
        return m_begun;
    }
    int MostAtOnce() {
        const std::lock_guard lock(m_lock);
        return m_most;
    }
    int Niceness() {
        const std::lock_guard lock(m_lock);
        return m_niceness;
    }

 private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<std::string> m_begun;
    int m_running = 0;
    int m_most = 0;
    int m_niceness = 0;
    bool m_isOpen = false;
};

/// A thread that asks for a hash; it has its place in the queue when it is constructed.
class CCaller final : private IWaitingObserver {
 public:
    CCaller(CPasswordHashQueue& queue, std::string password) {
        m_thread = std::thread([this, &queue, password = std::move(password)] {
            const CWaitingObserverScope observed(*this);
            const CAbandonmentScope abandonable(m_abandonment);
            m_result = queue.Hash(password, PasswordSalt{7});
        });
        m_isWaiting.acquire();
    }
    void Abandon() { m_abandonment.Abandon(); }
    CResult<PasswordHash> Result() {
        m_thread.join();
        return m_result;
    }

 private:
    void OnAboutToWait() noexcept override { m_isWaiting.release(); }

    CAbandonment m_abandonment;
    std::counting_semaphore<> m_isWaiting{0};
    CResult<PasswordHash> m_result = ErrorCode::GenFailure;
    std::thread m_thread;
};

class PasswordHashQueueTest : public testing::Test {
 protected:
    CCaller& Call(CPasswordHashQueue& queue, std::string password) {
        return *m_callers.emplace_back(std::make_unique<CCaller>(queue, std::move(password)));
    }
    static void ExpectHashOf(CCaller& caller, char password) {
        const auto result = caller.Result();
        ASSERT_TRUE(result.IsOk()) << ToNumber(result.Error());
        EXPECT_EQ(result.Value(), (PasswordHash{static_cast<unsigned char>(password), 7}));
    }

    const std::shared_ptr<CHeldHasher> m_hasher = std::make_shared<CHeldHasher>();
    std::vector<std::unique_ptr<CCaller>> m_callers;
};

TEST_F(PasswordHashQueueTest, TurnsAreTakenInOrderOfArrival) {
    CPasswordHashQueue queue(m_hasher, 1);
    for (const char* password : {"a", "b", "c", "d", "e"}) Call(queue, password);
    m_hasher->WaitUntilBegun(1);
    EXPECT_EQ(m_hasher->Begun(), (std::vector<std::string>{"a"}));
    m_hasher->Open();
    for (std::size_t i = 0; i < m_callers.size(); ++i)
        ExpectHashOf(*m_callers[i], static_cast<char>('a' + i));
    EXPECT_EQ(m_hasher->Begun(), (std::vector<std::string>{"a", "b", "c", "d", "e"}));
}

TEST_F(PasswordHashQueueTest, AsManyRunAtATimeAsAllowedAndGiveWayToOthers) {
    CPasswordHashQueue queue(m_hasher, 3);
    for (const char* password : {"a", "b", "c", "d", "e", "f", "g"}) Call(queue, password);
    m_hasher->WaitUntilBegun(3);
    m_hasher->Open();
    for (std::size_t i = 0; i < m_callers.size(); ++i)
        ExpectHashOf(*m_callers[i], static_cast<char>('a' + i));
    EXPECT_EQ(m_hasher->MostAtOnce(), 3);
    EXPECT_GT(m_hasher->Niceness(), ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())));
}

TEST_F(PasswordHashQueueTest, AWaiterWhoseClientHasLeftGivesUpItsTurn) {
    CPasswordHashQueue queue(m_hasher, 1);
    CCaller& first = Call(queue, "a");
    m_hasher->WaitUntilBegun(1);
    CCaller& left = Call(queue, "b");
    CCaller& last = Call(queue, "c");
    left.Abandon();
    EXPECT_EQ(left.Result().Error(), ErrorCode::OperationAborted);
    m_hasher->Open();
    ExpectHashOf(first, 'a');
    ExpectHashOf(last, 'c');
    EXPECT_EQ(m_hasher->Begun(), (std::vector<std::string>{"a", "c"}));
}

TEST_F(PasswordHashQueueTest, AHashUnderWayKeepsItsPlaceWhenItsClientLeaves) {
    CPasswordHashQueue queue(m_hasher, 1);
    CCaller& left = Call(queue, "a");
    m_hasher->WaitUntilBegun(1);
    left.Abandon();
    EXPECT_EQ(left.Result().Error(), ErrorCode::OperationAborted);
    CCaller& next = Call(queue, "b");
    EXPECT_EQ(m_hasher->Begun(), (std::vector<std::string>{"a"}));
    m_hasher->Open();
    ExpectHashOf(next, 'b');
    EXPECT_EQ(m_hasher->MostAtOnce(), 1);
}

TEST_F(PasswordHashQueueTest, AFailureReachesItsCallerAlone) {
    CPasswordHashQueue queue(m_hasher, 1);
    CCaller& failing = Call(queue, "fails");
    CCaller& next = Call(queue, "b");
    m_hasher->Open();
    EXPECT_EQ(failing.Result().Error(), ErrorCode::NotEnoughMemory);
    ExpectHashOf(next, 'b');
}

TEST_F(PasswordHashQueueTest, ACallerThatNobodyObservesIsServedToo) {
    CPasswordHashQueue queue(m_hasher, 2);
    m_hasher->Open();
    for (const char* password : {"a", "b"}) {
        EXPECT_EQ(queue.Hash(password, PasswordSalt{7}).Value()[0], static_cast<unsigned char>(password[0]));
    }
}

}  // namespace
}  // namespace quorbel
