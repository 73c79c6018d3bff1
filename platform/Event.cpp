#include "platform/Event.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <poll.h>
#include <sys/eventfd.h>

#include "platform/Precondition.h"
#include "platform/Waiting.h"

namespace quorbel {

namespace {

/// The end of a wait that poll is called for as often as it takes: a signal or poll's own range may end one
/// call.
class CDeadline {
 public:
    explicit CDeadline(std::optional<std::chrono::milliseconds> timeout) {
        constexpr std::chrono::hours kCentury{876'600};  // the clock's range would end at three of them
        if (timeout) m_end = Clock::now() + std::min<std::chrono::milliseconds>(*timeout, kCentury);
    }
    bool HasPassed() const { return m_end && Clock::now() >= *m_end; }
    /// What to call poll with.
    int PollTime() const {
        if (!m_end) return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*m_end - Clock::now()).count();
        return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
    }

 private:
    using Clock = std::chrono::steady_clock;
    std::optional<Clock::time_point> m_end;
};

}  // namespace

CResult<std::shared_ptr<CEvent>> CEvent::Create(EventReset reset) {
    CFileDescriptor descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
    return std::make_shared<CEvent>(reset, std::move(descriptor));
}

CEvent::CEvent(EventReset reset, CFileDescriptor descriptor) noexcept
    : m_reset(reset), m_descriptor(std::move(descriptor)) {}

void CEvent::Set() noexcept {
    const std::uint64_t one = 1;
    // Fails only when the counter is at its maximum; the event is set then as well.
    Ignore(::write(m_descriptor.Get(), &one, sizeof one));
}

void CEvent::Clear() noexcept {
    std::uint64_t count = 0;
    Ignore(::read(m_descriptor.Get(), &count, sizeof count));
}

bool CEvent::Test() noexcept {
    if (m_reset == EventReset::Auto) {
        std::uint64_t count = 0;
        return ::read(m_descriptor.Get(), &count, sizeof count) == sizeof count;
    }
    pollfd entry{m_descriptor.Get(), POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
}

CResult<std::size_t> WaitForAny(std::initializer_list<CEvent*> events,
                                std::optional<std::chrono::milliseconds> timeout) {
    std::array<pollfd, 16> entries{};
    Require(events.size() <= entries.size() && std::ranges::count(events, nullptr) == 0);
    const CDeadline deadline(timeout);
    AboutToWait();
    for (;;) {
        std::size_t count = 0;
        for (CEvent* event : events) entries[count++] = {event->Descriptor(), POLLIN, 0};
        const int ready = ::poll(entries.data(), count, deadline.PollTime());
        if (ready < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (ready == 0 && deadline.HasPassed()) return ErrorCode::WaitTimeout;
        std::size_t index = 0;
        for (CEvent* event : events) {
            // Another waiter may have taken an automatic event since poll saw it: only Test decides.
            if ((entries[index].revents != 0 || ready < 0) && event->Test()) return index;
            ++index;
        }
    }
}

void WaitUntilSet(const CEvent& event, std::chrono::milliseconds timeout) noexcept {
    const CDeadline deadline(timeout);
    pollfd entry{event.Descriptor(), POLLIN, 0};
    while (::poll(&entry, 1, deadline.PollTime()) != 1 && !deadline.HasPassed()) {
    }
}

}  // namespace quorbel
