#pragma once

#include <memory>

#include "platform/Event.h"

namespace quorbel {

/// Says that the calling thread is about to wait for something slow: a query, a lock held for long, a long
/// computation. Whoever runs the thread may let another one go on in its place. Costs next to nothing
/// otherwise.
void AboutToWait() noexcept;

/// Set when the client for whom the calling thread works has left, so that its work need not go on; null when
/// nobody can tell.
std::shared_ptr<CEvent> WorkAbandoned();

/// Wants to know when the thread that it runs is about to wait.
class IWaitingObserver {
 public:
    virtual ~IWaitingObserver() = default;
    virtual void OnAboutToWait() noexcept = 0;
    /// As the function of that name.
    virtual std::shared_ptr<CEvent> WorkAbandoned() { return nullptr; }
};

/// Makes an observer that of the calling thread for the object's life.
class CWaitingObserverScope {
 public:
    explicit CWaitingObserverScope(IWaitingObserver& observer) noexcept;
    ~CWaitingObserverScope();
    CWaitingObserverScope(const CWaitingObserverScope&) = delete;
    CWaitingObserverScope& operator=(const CWaitingObserverScope&) = delete;

 private:
    IWaitingObserver* const m_previous;
};

}  // namespace quorbel
