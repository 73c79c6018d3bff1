#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace quorbel {

/// Counts the threads that are inside, so that an owner can wait until the last one has left. Holds no lock while
/// they are inside and takes no other lock.
class CGate {
 public:
    void Enter() {
        const std::lock_guard lock(m_mutex);
        ++m_inside;
    }
    void Leave() {
        // The lock is held to the end: as soon as it is free the owner may destroy the gate.
        const std::lock_guard lock(m_mutex);
        if (--m_inside == 0) m_empty.notify_all();
    }
    void WaitUntilEmpty() {
        std::unique_lock lock(m_mutex);
        m_empty.wait(lock, [this] { return m_inside == 0; });
    }

 private:
    std::mutex m_mutex;
    std::condition_variable m_empty;
    std::size_t m_inside = 0;
};

/// Inside a gate for the object's life; shared by the continuations of one piece of work.
class CGatePass {
 public:
    explicit CGatePass(CGate& gate) : m_gate(gate) { m_gate.Enter(); }
    ~CGatePass() { m_gate.Leave(); }
    CGatePass(const CGatePass&) = delete;
    CGatePass& operator=(const CGatePass&) = delete;

 private:
    CGate& m_gate;
};

}  // namespace quorbel
