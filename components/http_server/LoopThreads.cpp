#include "components/http_server/LoopThreads.h"

#include "components/http_server/Loop.h"
#include "platform/Thread.h"

namespace quorbel {

namespace {

/// A thread that has stood by for that long ends, but for the last few.
constexpr std::chrono::seconds kIdleTime{10};
constexpr std::size_t kKeptIdle = 2;

/// The watch goes to sleep when it has seen that many times in a row that nothing happened.
constexpr int kQuietLooks = 50;

}  // namespace

CLoopThreads::~CLoopThreads() {
    std::unique_lock lock(m_lock);
    m_isStopped = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_running == 0; });
}

void CLoopThreads::SetMost(std::size_t most, std::size_t loops) {
    m_mostWork = most + loops;
    const std::lock_guard lock(m_lock);
    m_most = most + 2 * loops;
}

bool CLoopThreads::Run(CLoop& loop) noexcept {
    const std::lock_guard lock(m_lock);
    m_waiting.push_back(&loop);
    if (m_idle < m_waiting.size() && m_running < m_most) StartOne();
    m_changed.notify_all();
    return m_running != 0;
}

bool CLoopThreads::StartOne() noexcept {
    auto thread = StartThread("HttpLoop", [this] { Work(); });
    if (!thread.IsOk()) return false;
    std::thread(std::move(thread).Value()).detach();  // the count tells when it has ended
    ++m_running;
    ++m_idle;
    return true;
}

void CLoopThreads::Work() {
    std::unique_lock lock(m_lock);
    for (;;) {
        const bool isWoken =
            m_changed.wait_for(lock, kIdleTime, [this] { return m_isStopped || !m_waiting.empty(); });
        if (!m_waiting.empty()) {
            CLoop& loop = *m_waiting.front();
            m_waiting.pop_front();
            --m_idle;
            lock.unlock();
            loop.Run();
            lock.lock();
            ++m_idle;
        } else if (m_isStopped || (!isWoken && m_idle > kKeptIdle)) {
            break;
        }
    }
    --m_idle;
    --m_running;
    m_changed.notify_all();
}

ErrorCode CLoopWatch::Start() {
    auto thread = StartThread("HttpLoopWatch", [this] { Watch(); });
    if (!thread.IsOk()) return thread.Error();
    m_thread = std::move(thread).Value();
    return ErrorCode::Success;
}

CLoopWatch::~CLoopWatch() {
    m_isStopped = true;
    Wake();
    if (m_thread.joinable()) m_thread.join();
}

void CLoopWatch::Add(CLoop& loop) {
    const std::lock_guard lock(m_lock);
    m_loops.push_back({&loop, 0});
}

void CLoopWatch::Remove(CLoop& loop) {
    const std::lock_guard lock(m_lock);
    std::erase_if(m_loops, [&loop](const CWatched& watched) { return watched.loop == &loop; });
}

void CLoopWatch::Wake() noexcept {
    m_isAsleep = false;
    m_isAsleep.notify_one();
}

bool CLoopWatch::LookAtLoops() {
    const std::lock_guard lock(m_lock);
    bool isBusy = false;
    for (CWatched& watched : m_loops) {
        const std::uint64_t work = watched.loop->Work();
        const bool isUnderWay = (work & 1) != 0;
        isBusy = isBusy || isUnderWay || work != watched.work;
        if (isUnderWay && work == watched.work) watched.loop->HandOver(work);
        watched.work = work;
    }
    return isBusy;
}

void CLoopWatch::Watch() {
    for (int quiet = 0; !m_isStopped;) {
        quiet = LookAtLoops() ? 0 : quiet + 1;
        if (quiet > kQuietLooks) {
            m_isAsleep = true;
            // Whoever begins work after this look sees that the watch is asleep.
            if (!LookAtLoops() && !m_isStopped) m_isAsleep.wait(true);
            m_isAsleep = false;
            quiet = 0;
        }
        std::this_thread::sleep_for(kPatience);
    }
}

}  // namespace quorbel
