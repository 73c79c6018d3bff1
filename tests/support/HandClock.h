#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <poll.h>

#include "platform/Clock.h"

namespace quorbel {

/// A clock that stands still until a test turns it. A pause lasts until it is turned far enough or woken.
class CHandClock final : public IClock {
 public:
    std::chrono::nanoseconds Steady() const override {
        const std::lock_guard lock(m_lock);
        return m_now;
    }
    std::uint64_t System() const override {
        return 133'000'000'000'000'000 + static_cast<std::uint64_t>(Steady().count() / 100);
    }
    void Pause(std::chrono::milliseconds duration, CEvent& wake) override {
        std::unique_lock lock(m_lock);
        ++m_pauses;
        const auto end = m_now + duration;
        m_turned.notify_all();
        // The wake event is looked at now and then, as it cannot notify this condition.
        while (m_now < end && !m_runsFreely && !IsSet(wake))
            m_turned.wait_for(lock, std::chrono::milliseconds(5));
    }

    void Turn(std::chrono::nanoseconds by) {
        const std::lock_guard lock(m_lock);
        m_now += by;
        m_turned.notify_all();
    }
    /// With `true`, pauses end at once.
    void RunFreely(bool freely) {
        const std::lock_guard lock(m_lock);
        m_runsFreely = freely;
        m_turned.notify_all();
    }
    /// Does `change`, then waits until a pause has begun since; false when it took unreasonably long.
    bool PausesAfter(const std::function<void()>& change) {
        std::unique_lock lock(m_lock);
        const std::size_t before = m_pauses;
        lock.unlock();
        change();
        lock.lock();
        return m_turned.wait_for(lock, std::chrono::seconds(60), [&] { return m_pauses > before; });
    }

 private:
    /// Looks without taking an automatic event away from whom it wakes.
    static bool IsSet(const CEvent& event) {
        pollfd entry{event.Descriptor(), POLLIN, 0};
        return ::poll(&entry, 1, 0) == 1;
    }

    mutable std::mutex m_lock;
    std::condition_variable m_turned;
    std::chrono::nanoseconds m_now{1'000'000'000};
    std::size_t m_pauses = 0;
    bool m_runsFreely = true;
};

}  // namespace quorbel
