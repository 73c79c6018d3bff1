#include "platform/Waiting.h"

#include <mutex>
#include <utility>

namespace quorbel {

namespace {

thread_local IWaitingObserver* t_observer = nullptr;
thread_local CAbandonment* t_abandonment = nullptr;

}  // namespace

void AboutToWait() noexcept {
    if (t_observer) t_observer->OnAboutToWait();
}

CWaitingObserverScope::CWaitingObserverScope(IWaitingObserver& observer) noexcept
    : m_previous(std::exchange(t_observer, &observer)) {}

CWaitingObserverScope::~CWaitingObserverScope() {
    t_observer = m_previous;
}

void CAbandonment::Abandon() noexcept {
    const std::lock_guard lock(m_lock);
    m_isAbandoned = true;
    if (m_event) m_event->Set();
}

std::shared_ptr<CEvent> CAbandonment::Event() {
    const std::lock_guard lock(m_lock);
    if (m_event) return m_event;
    auto event = CEvent::Create(EventReset::Manual);
    if (!event.IsOk()) return nullptr;
    m_event = std::move(event).Value();
    if (m_isAbandoned) m_event->Set();
    return m_event;
}

std::shared_ptr<CEvent> WorkAbandoned() {
    return t_abandonment ? t_abandonment->Event() : nullptr;
}

CAbandonmentScope::CAbandonmentScope(CAbandonment& abandonment) noexcept
    : m_previous(std::exchange(t_abandonment, &abandonment)) {}

CAbandonmentScope::~CAbandonmentScope() {
    t_abandonment = m_previous;
}

}  // namespace quorbel
