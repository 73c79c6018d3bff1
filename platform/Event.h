#pragma once

#include <chrono>
#include <initializer_list>
#include <memory>
#include <optional>

#include "platform/Error.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// What happens to a set event when a wait or a test sees it.
enum class EventReset {
    Manual,  ///< it stays set until Clear
    Auto     ///< it is cleared by the one wait or test that sees it
};

/// An event object, safe to use from any thread. Set may also be called from a signal handler.
class CEvent {
 public:
    /// A new event, not set. Fails when the process has no descriptor left.
    static CResult<std::shared_ptr<CEvent>> Create(EventReset reset);

    void Set() noexcept;
    void Clear() noexcept;
    /// Tests without waiting; clears an automatic event that was set.
    bool Test() noexcept;

    /// Readable (poll) while the event is set.
    int Descriptor() const noexcept { return m_descriptor.Get(); }

    CEvent(EventReset reset, CFileDescriptor descriptor) noexcept;

 private:
    const EventReset m_reset;
    const CFileDescriptor m_descriptor;
};

/// Waits for the first of the events, in the order given, and says which one it was (its index); an automatic
/// event that ended the wait is cleared. Without a time-out the wait is unbounded; a passed time-out is
/// WaitTimeout.
CResult<std::size_t> WaitForAny(std::initializer_list<CEvent*> events,
                                std::optional<std::chrono::milliseconds> timeout = std::nullopt);

/// Waits until the event is set, and leaves it set, or the time has passed.
void WaitUntilSet(const CEvent& event, std::chrono::milliseconds timeout) noexcept;

}  // namespace quorbel
