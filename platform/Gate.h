#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "platform/Lock.h"

namespace quorbel {

/// Counts the threads that are inside, so that an owner can shut out newcomers and wait until the last thread
/// has left. Safe to use from any thread.
class CGate {
 public:
    /// False when the gate is closed.
    bool TryEnter() {
        const std::lock_guard lock(m_lock);
        if (m_isClosed) return false;
        ++m_inside;
        return true;
    }
    void Leave() {
        const std::lock_guard lock(m_lock);
        if (--m_inside == 0) m_empty.notify_all();
    }
    /// From now on nobody enters; returns when nobody is inside.
    void CloseAndWait() {
        std::unique_lock lock(m_lock);
        m_isClosed = true;
        m_empty.wait(lock, [this] { return m_inside == 0; });
    }

 private:
    CMutex m_lock{LockRank::Innermost};  // guards what follows
    std::condition_variable_any m_empty;
    std::size_t m_inside = 0;
    bool m_isClosed = false;
};

/// Inside a gate for the object's life, if it was let in.
class CGatePass {
 public:
    explicit CGatePass(CGate& gate) : m_gate(gate.TryEnter() ? &gate : nullptr) {}
    ~CGatePass() {
        if (m_gate) m_gate->Leave();
    }
    CGatePass(const CGatePass&) = delete;
    CGatePass& operator=(const CGatePass&) = delete;

    bool IsInside() const noexcept { return m_gate != nullptr; }

 private:
    CGate* const m_gate;
};

}  // namespace quorbel
