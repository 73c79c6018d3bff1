#include "platform/Event.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>

namespace quorbel {

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
    assert(events.size() <= entries.size());
    const auto deadline = std::chrono::steady_clock::now() + timeout.value_or(std::chrono::milliseconds(0));
    for (;;) {
        std::size_t count = 0;
        for (CEvent* event : events) entries[count++] = {event->Descriptor(), POLLIN, 0};
        int wait = -1;
        if (timeout) {
            auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            wait = static_cast<int>(std::max<std::int64_t>(0, left.count()));
        }
        const int ready = ::poll(entries.data(), count, wait);
        if (ready < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (ready == 0) return ErrorCode::WaitTimeout;
        std::size_t index = 0;
        for (CEvent* event : events) {
            // Another waiter may have taken an automatic event since poll saw it: only Test decides.
            if ((entries[index].revents != 0 || ready < 0) && event->Test()) return index;
            ++index;
        }
    }
}

}  // namespace quorbel
