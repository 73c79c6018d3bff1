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
    std::vector<std::weak_ptr<ICancellable>> cancelled;
    {
        const std::lock_guard lock(m_lock);
        m_isAbandoned = true;
        if (m_event) m_event->Set();
        std::swap(cancelled, m_work);
    }
    for (const auto& work : cancelled) {
        if (const auto running = work.lock()) running->Cancel();
    }
}

void CAbandonment::Add(std::weak_ptr<ICancellable> work) {
    {
        const std::lock_guard lock(m_lock);
        if (!m_isAbandoned) {
            m_work.push_back(std::move(work));
            return;
        }
    }
    if (const auto running = work.lock()) running->Cancel();
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

void CancelWhenAbandoned(std::weak_ptr<ICancellable> work) {
    if (t_abandonment) t_abandonment->Add(std::move(work));
}

CAbandonmentScope::CAbandonmentScope(CAbandonment& abandonment) noexcept
    : m_previous(std::exchange(t_abandonment, &abandonment)) {}

CAbandonmentScope::~CAbandonmentScope() {
    t_abandonment = m_previous;
}

}  // namespace quorbel
