#include "components/provider/OdbcCancellation.h"

#include <chrono>

#include "platform/Thread.h"

namespace quorbel {

namespace {
/// Only a call that had not reached the server yet is cancelled twice.
constexpr std::chrono::milliseconds kPause{20};
}  // namespace

COdbcCancellation::CCall::CCall(COdbcCancellation& owner, SQLHANDLE statement) : m_owner(owner) {
    std::lock_guard lock(owner.m_mutex);
    m_mayRun = !owner.m_cancelled;
    if (m_mayRun) owner.m_running = statement;
}

COdbcCancellation::CCall::~CCall() {
    std::unique_lock lock(m_owner.m_mutex);
    m_owner.m_running = nullptr;
    m_owner.m_changed.notify_all();
    // A cancellation that is on its way must not meet the next call.
    m_owner.m_changed.wait(lock, [this] { return !m_owner.m_cancelling; });
}

void COdbcCancellation::Cancel() noexcept {
    std::lock_guard lock(m_mutex);
    if (m_cancelled) return;
    m_cancelled = true;
    if (!m_running) return;
    auto started = StartThread("OdbcCancel", [this] { Repeat(); });
    if (started.IsOk()) {
        m_thread = std::move(started).Value();
    } else {
        SQLCancel(m_running);
    }
}

bool COdbcCancellation::IsCancelled() const {
    std::lock_guard lock(m_mutex);
    return m_cancelled;
}

void COdbcCancellation::Clear() {
    Wait();
    std::lock_guard lock(m_mutex);
    m_cancelled = false;
}

void COdbcCancellation::Repeat() {
    std::unique_lock lock(m_mutex);
    while (m_running) {
        const SQLHANDLE statement = m_running;
        m_cancelling = true;
        lock.unlock();
        SQLCancel(statement);
        lock.lock();
        m_cancelling = false;
        m_changed.notify_all();
        m_changed.wait_for(lock, kPause, [this] { return !m_running; });
    }
}

void COdbcCancellation::Wait() {
    std::thread thread;
    {
        std::lock_guard lock(m_mutex);
        thread = std::move(m_thread);
    }
    if (thread.joinable()) thread.join();
}

}  // namespace quorbel
