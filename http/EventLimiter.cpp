#include "http/EventLimiter.h"

#include <utility>

namespace quorbel {

std::optional<std::uint64_t> CEventLimiter::Admit() {
    const std::lock_guard lock(m_lock);
    const auto now = m_clock.Steady();
    if (now - m_second >= std::chrono::seconds(1)) {
        m_second = now;
        m_written = 0;
    }
    if (m_written == kPerSecond) {
        ++m_leftOut;
        return std::nullopt;
    }
    ++m_written;
    return std::exchange(m_leftOut, 0);
}

void CEventLimiter::Write(const std::wstring& text, const std::function<void(const std::wstring&)>& write) {
    const auto leftOut = Admit();
    if (!leftOut) return;
    write(*leftOut == 0 ? text
                        : text + L" (" + std::to_wstring(*leftOut) + L" further entries were left out)");
}

}  // namespace quorbel
