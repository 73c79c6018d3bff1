#pragma once

namespace quorbel {

/// Says that the calling thread is about to wait for something slow: a query, a lock held for long, a long
/// computation. Whoever runs the thread may let another one go on in its place. Costs next to nothing
/// otherwise.
void AboutToWait() noexcept;

/// Wants to know when the thread that it runs is about to wait.
class IWaitingObserver {
 public:
    virtual ~IWaitingObserver() = default;
    virtual void OnAboutToWait() noexcept = 0;
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
