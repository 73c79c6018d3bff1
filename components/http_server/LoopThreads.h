#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "platform/Error.h"
#include "platform/Lock.h"

namespace quorbel {

class CLoop;

/// The threads that run loops. A thread whose work waits leaves its loop to another one; those that have
/// nothing to run stand by, and end after some seconds. Safe to use from any thread.
class CLoopThreads {
 public:
    CLoopThreads() = default;
    /// Every loop has been stopped: waits until all threads have ended.
    ~CLoopThreads();
    CLoopThreads(const CLoopThreads&) = delete;
    CLoopThreads& operator=(const CLoopThreads&) = delete;

    /// Has a thread run the loop: one that stands by, else a new one, else the first that comes free. False
    /// when there is no thread at all.
    bool Run(CLoop& loop) noexcept;
    /// So many pieces of work may wait for others than the one that each of the loops may be at; there is a
    /// thread for all of that, and one more for each loop.
    void SetMost(std::size_t most, std::size_t loops);

    /// Counts a piece of work that may wait; false when there are too many already.
    bool TryBeginWork() noexcept {
        if (m_work.fetch_add(1) < m_mostWork.load(std::memory_order_relaxed)) return true;
        EndWork();
        return false;
    }
    void EndWork() noexcept { m_work.fetch_sub(1); }

 private:
    void Work();
    bool StartOne() noexcept;

    std::atomic<std::size_t> m_work{0};
    std::atomic<std::size_t> m_mostWork{0};
    CMutex m_lock{LockRank::Innermost};  // guards what follows
    std::condition_variable_any m_changed;
    std::deque<CLoop*> m_waiting;
    std::size_t m_most = 0;
    std::size_t m_idle = 0;
    std::size_t m_running = 0;
    bool m_isStopped = false;
};

/// Looks after loops: work that is still under way after some milliseconds counts as waiting, and the loop is
/// handed over. Sleeps while no loop begins work that may wait.
class CLoopWatch {
 public:
    static constexpr std::chrono::milliseconds kPatience{2};

    ErrorCode Start();
    ~CLoopWatch();
    CLoopWatch() = default;
    CLoopWatch(const CLoopWatch&) = delete;
    CLoopWatch& operator=(const CLoopWatch&) = delete;

    void Add(CLoop& loop);
    void Remove(CLoop& loop);
    /// A loop has begun work.
    void OnWork() noexcept {
        if (m_isAsleep.load()) Wake();
    }

 private:
    struct CWatched {
        CLoop* loop;
        std::uint64_t work;
    };

    void Wake() noexcept;
    void Watch();
    /// True when some loop has begun work, or is at work, since the last look.
    bool LookAtLoops();

    std::thread m_thread;
    std::atomic<bool> m_isAsleep{false};
    std::atomic<bool> m_isStopped{false};
    CMutex m_lock{LockRank::HttpLoops};  // guards what follows
    std::vector<CWatched> m_loops;
};

}  // namespace quorbel
