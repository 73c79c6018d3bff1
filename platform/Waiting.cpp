#include "platform/Waiting.h"

#include <utility>

namespace quorbel {

namespace {

thread_local IWaitingObserver* t_observer = nullptr;

}  // namespace

void AboutToWait() noexcept {
    if (t_observer) t_observer->OnAboutToWait();
}

std::shared_ptr<CEvent> WorkAbandoned() {
    return t_observer ? t_observer->WorkAbandoned() : nullptr;
}

CWaitingObserverScope::CWaitingObserverScope(IWaitingObserver& observer) noexcept
    : m_previous(std::exchange(t_observer, &observer)) {}

CWaitingObserverScope::~CWaitingObserverScope() {
    t_observer = m_previous;
}

}  // namespace quorbel
