#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "components/http_server/LoopThreads.h"
#include "platform/Clock.h"
#include "platform/Waiting.h"

namespace quorbel {

/// One event loop: what it runs, runs one at a time. Work that may wait runs between MayWait and Resume: when
/// it does wait, another thread takes the loop over, so that nothing else has to wait with it.
///
/// Whoever uses a loop may outlive the server whose it is, and shares in its ownership.
class CLoop : public std::enable_shared_from_this<CLoop>, private IWaitingObserver {
 public:
    /// Looks at the time now and then.
    class ITicking {
     public:
        virtual ~ITicking() = default;
        /// May remove the object itself from the loop, but no other.
        virtual void OnTick(std::chrono::nanoseconds now) = 0;
        /// The loop ends: the object gives up what it waits for, and removes itself.
        virtual void OnLoopEnd() = 0;

     private:
        friend class CLoop;
        std::size_t m_place = 0;
    };
    static constexpr std::chrono::milliseconds kTick{250};

    CLoop(CLoopThreads& threads, CLoopWatch& watch, IClock& clock);
    ~CLoop() override = default;
    CLoop(const CLoop&) = delete;
    CLoop& operator=(const CLoop&) = delete;

    boost::asio::io_context& Context() noexcept { return m_context; }
    IClock& Clock() const noexcept { return m_clock; }
    /// Runs `work` on the loop, later; drops it after the loop's end. From any thread.
    template <class Work>
    void Post(Work&& work) {
        const std::lock_guard lock(m_lock);
        if (!m_hasEnded) boost::asio::post(m_context, std::forward<Work>(work));
    }

    /// Runs the loop in the calling thread until it is stopped or another thread has taken it over.
    void Run();
    void Stop() { m_context.stop(); }
    /// After Stop, when no thread runs the loop any more: gives up all that is under way on it. The loop's
    /// threads, watch and clock are not used afterwards.
    void End();

    /// What the loop's thread does from here on may take long. False when too much is waiting already: it
    /// must not begin then.
    [[nodiscard]] bool MayWait() noexcept;
    /// The work is done. False when another thread has taken the loop over: the caller then touches nothing
    /// of the loop any more, posts what is left to do, and returns.
    [[nodiscard]] bool Resume() noexcept;

    /// A number that is odd while work is under way that may wait, and another one for each such work.
    std::uint64_t Work() const noexcept { return m_work.load(); }
    /// Lets another thread go on if `work` is under way still. From any thread.
    void HandOver(std::uint64_t work) noexcept;

    /// Holds the object and calls its OnTick about every kTick until it is removed; both on the loop.
    void AddTicking(std::shared_ptr<ITicking> ticking);
    void RemoveTicking(ITicking& ticking) noexcept;
    /// Calls OnTick once, soon. From any thread.
    void TickNow();

    /// "Date: ...\r\n" of this second (RFC 9110, section 6.6.1). On the loop.
    std::string_view DateField();

 private:
    void OnAboutToWait() noexcept override;
    void StartTimer();
    void CallTicking();

    CLoopThreads& m_threads;
    CLoopWatch& m_watch;
    IClock& m_clock;
    boost::asio::io_context m_context;
    const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_guard;
    std::atomic<std::uint64_t> m_work{0};
    CMutex m_lock{LockRank::Innermost};  // guards:
    bool m_hasEnded = false;

    // Used on the loop only.
    boost::asio::steady_timer m_timer{m_context};
    std::vector<std::shared_ptr<ITicking>> m_ticking;
    bool m_isTimerRunning = false;
    std::int64_t m_dateSecond = -1;
    std::string m_date;
};

}  // namespace quorbel
