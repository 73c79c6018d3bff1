#include "components/http_server/Loop.h"

#include <array>
#include <ctime>

#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

/// Set when the loop that this thread ran was taken over.
thread_local bool t_isReplaced = false;
/// The work that this thread has begun last, and whether it has not ended yet.
thread_local std::uint64_t t_work = 0;
thread_local bool t_isAtWork = false;

}  // namespace

CLoop::CLoop(CLoopThreads& threads, CLoopWatch& watch, IClock& clock)
    : m_threads(threads), m_watch(watch), m_clock(clock), m_guard(m_context.get_executor()) {
    m_watch.Add(*this);
}

void CLoop::End() {
    {
        const std::lock_guard lock(m_lock);
        m_hasEnded = true;
    }
    m_watch.Remove(*this);
    m_timer.cancel();
    m_context.restart();
    // What was posted before may bring new users.
    do {
        while (!m_ticking.empty()) m_ticking.back()->OnLoopEnd();
    } while (m_context.poll() != 0);
}

void CLoop::Run() {
    t_isReplaced = false;
    const CWaitingObserverScope observe(*this);
    while (!t_isReplaced && !m_context.stopped()) {
        try {
            const CFaultScope faults;
            m_context.run_one();
        } catch (...) {
            // A fault or, in all likelihood, want of memory: one connection suffers, the others go on.
            TakeCaughtFault();
            if (t_isAtWork) Ignore(Resume());
        }
    }
}

bool CLoop::MayWait() noexcept {
    if (!m_threads.TryBeginWork()) return false;
    t_isAtWork = true;
    t_work = m_work.fetch_add(1) + 1;
    m_watch.OnWork();
    return true;
}

bool CLoop::Resume() noexcept {
    m_threads.EndWork();
    t_isAtWork = false;
    std::uint64_t expected = t_work;
    if (m_work.compare_exchange_strong(expected, expected + 1)) return true;
    t_isReplaced = true;
    return false;
}

void CLoop::HandOver(std::uint64_t work) noexcept {
    if ((work & 1) != 0 && m_work.compare_exchange_strong(work, work + 1)) m_threads.Run(*this);
}

void CLoop::OnAboutToWait() noexcept {
    if (!t_isReplaced) HandOver(t_work);
}

void CLoop::AddTicking(std::shared_ptr<ITicking> ticking) {
    ticking->m_place = m_ticking.size();
    m_ticking.push_back(std::move(ticking));
    if (!m_isTimerRunning) StartTimer();
}

void CLoop::RemoveTicking(ITicking& ticking) noexcept {
    m_ticking.back()->m_place = ticking.m_place;
    std::swap(m_ticking[ticking.m_place], m_ticking.back());
    m_ticking.pop_back();
}

void CLoop::StartTimer() {
    m_isTimerRunning = true;
    m_timer.expires_after(kTick);
    m_timer.async_wait([this](const boost::system::error_code&) {
        m_isTimerRunning = false;
        CallTicking();
        if (!m_ticking.empty()) StartTimer();
    });
}

void CLoop::CallTicking() {
    const auto now = m_clock.Steady();
    // From the back: whoever goes gives its place to one that was called already.
    for (std::size_t place = m_ticking.size(); place-- > 0;) m_ticking[place]->OnTick(now);
}

void CLoop::TickNow() {
    Post([this] { CallTicking(); });
}

std::string_view CLoop::DateField() {
    const std::int64_t second = ToUnixTime(m_clock.System()).seconds;
    if (second != m_dateSecond) {
        const std::time_t time = second;
        std::tm parts{};
        ::gmtime_r(&time, &parts);
        std::array<char, 48> text{};
        // The service keeps the C locale, whose names of days and months are those of the standard.
        const std::size_t length =
            std::strftime(text.data(), text.size(), "Date: %a, %d %b %Y %H:%M:%S GMT\r\n", &parts);
        m_date.assign(text.data(), length);
        m_dateSecond = second;
    }
    return m_date;
}

}  // namespace quorbel
