#include "LibService/ThreadSet.h"

#include <algorithm>
#include <list>
#include <mutex>
#include <new>

#include "platform/Lock.h"
#include "platform/Thread.h"

namespace quorbel {

struct CThreadSet::State {
    IClock& clock;
    const Starter starter;
    const std::shared_ptr<CEvent> taken;
    const std::shared_ptr<CEvent> becameIdle;

    CMutex lock{LockRank::ThreadSet};  // guards what follows, and what the threads say it guards
    bool isClosed = false;
    std::list<CThread*> idle;  ///< most recently idle first
    std::thread lastEnded;     ///< not yet joined; the next that ends does it
};

/// One thread of a set. Its procedure owns it; the set refers to it while it is idle.
class CThreadSet::CThread {
 public:
    CThread(std::shared_ptr<State> set, std::shared_ptr<CEvent> wake)
        : m_set(std::move(set)), m_wake(std::move(wake)) {
        m_idleLink.push_back(this);
    }

    /// A new thread, which waits to be handed work.
    static CStatus Start(const std::shared_ptr<State>& set, std::shared_ptr<CThread>& thread);

    // Under the set's lock:

    /// Takes the thread out of the idle ones.
    void LeaveIdle(std::list<CThread*>::iterator place) {
        m_idleLink.splice(m_idleLink.begin(), m_set->idle, place);
        m_set->taken->Set();
    }
    void HandWork(Function function, void* argument, const char* name) {
        m_function = function;
        m_argument = argument;
        m_name = name;
        m_wake->Set();
    }
    /// Gives what the end is waited for with. The thread may be gone when this returns.
    std::thread TellToEnd() {
        m_mustEnd = true;
        std::thread handle = std::move(m_thread);
        const std::shared_ptr<CEvent> wake = m_wake;
        wake->Set();
        return handle;
    }

 private:
    CStatus TryToStart(const std::shared_ptr<CThread>& self);
    void Live();
    bool WaitForWork();
    bool EndIfUnused();
    void RunWork();
    bool BecomeIdle();

    const std::shared_ptr<State> m_set;
    const std::shared_ptr<CEvent> m_wake;  ///< automatic

    // Guarded by the set's lock until the wake event is set, then the thread's own:
    bool m_mustEnd = false;
    Function m_function = nullptr;
    void* m_argument = nullptr;
    const char* m_name = kIdleName;

    // Guarded by the set's lock:
    std::thread m_thread;
    std::list<CThread*>
        m_idleLink;  ///< the thread's entry while it is not idle, so that becoming it cannot fail
};

CStatus CThreadSet::CThread::Start(const std::shared_ptr<State>& set, std::shared_ptr<CThread>& thread) {
    try {
        auto wake = CEvent::Create(EventReset::Auto);
        if (!wake.IsOk()) return SystemError(wake.Error());
        thread = std::make_shared<CThread>(set, std::move(wake).Value());
        return thread->TryToStart(thread);
    } catch (const std::bad_alloc&) {
        return AllocationError(sizeof(CThread));
    }
}

CStatus CThreadSet::CThread::TryToStart(const std::shared_ptr<CThread>& self) {
    for (int retries = 0;; ++retries) {
        auto started = m_set->starter(kIdleName, [self] { self->Live(); });
        if (started.IsOk()) {
            m_thread = std::move(started).Value();
            return {};
        }
        if (retries == kStartRetries) return SystemError(started.Error());
        m_set->clock.Pause(kStartPause, *m_wake);
    }
}

void CThreadSet::CThread::Live() {
    // Work catches its own faults; another one ends the process.
    do {
        if (!WaitForWork()) return;
        RunWork();
    } while (BecomeIdle());
}

/// False when the thread has to end.
bool CThreadSet::CThread::WaitForWork() {
    for (;;) {
        m_set->clock.Pause(kIdleTime, *m_wake);
        if (m_wake->Test()) return !m_mustEnd;
        if (EndIfUnused()) return false;
    }
}

bool CThreadSet::CThread::EndIfUnused() {
    std::thread previous;
    {
        const std::lock_guard lock(m_set->lock);
        const auto place = std::find(m_set->idle.begin(), m_set->idle.end(), this);
        // A thread that was taken just as its time was over goes on to run its work.
        if (place == m_set->idle.end()) return false;
        LeaveIdle(place);
        previous = std::exchange(m_set->lastEnded, std::move(m_thread));
    }
    if (previous.joinable()) previous.join();
    return true;
}

void CThreadSet::CThread::RunWork() {
    NameThisThread(m_name);
    m_function(m_argument);
    NameThisThread(kIdleName);
}

/// False when the set is gone.
bool CThreadSet::CThread::BecomeIdle() {
    const std::lock_guard lock(m_set->lock);
    if (m_set->isClosed) {
        m_thread.detach();
        return false;
    }
    m_set->idle.splice(m_set->idle.begin(), m_idleLink);
    m_set->becameIdle->Set();
    return true;
}

CResult<std::unique_ptr<CThreadSet>> CThreadSet::Create(IClock& clock) {
    return Create(clock, StartThread);
}

CResult<std::unique_ptr<CThreadSet>> CThreadSet::Create(IClock& clock, Starter starter) {
    auto taken = CEvent::Create(EventReset::Auto);
    if (!taken.IsOk()) return taken.Error();
    auto idle = CEvent::Create(EventReset::Auto);
    if (!idle.IsOk()) return idle.Error();
    return std::make_unique<CThreadSet>(std::make_shared<State>(
        clock, std::move(starter), std::move(taken).Value(), std::move(idle).Value()));
}

CThreadSet::CThreadSet(std::shared_ptr<State> state) noexcept : m_state(std::move(state)) {}

CThreadSet::~CThreadSet() {
    std::unique_lock lock(m_state->lock);
    m_state->isClosed = true;
    while (!m_state->idle.empty()) {
        CThread* const thread = m_state->idle.front();
        thread->LeaveIdle(m_state->idle.begin());
        std::thread handle = thread->TellToEnd();
        lock.unlock();
        handle.join();
        lock.lock();
    }
    if (m_state->lastEnded.joinable()) m_state->lastEnded.join();
}

CStatus CThreadSet::Run(Function function, void* argument, const char* name) {
    const std::lock_guard lock(m_state->lock);
    if (!m_state->idle.empty()) {
        CThread* const thread = m_state->idle.front();
        thread->LeaveIdle(m_state->idle.begin());
        thread->HandWork(function, argument, name);
        return {};
    }
    std::shared_ptr<CThread> thread;
    RETURN_IF_FAILED(CThread::Start(m_state, thread));
    thread->HandWork(function, argument, name);
    return {};
}

CEvent& CThreadSet::Taken() noexcept {
    return *m_state->taken;
}

CEvent& CThreadSet::Idle() noexcept {
    return *m_state->becameIdle;
}

}  // namespace quorbel
