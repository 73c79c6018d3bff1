#pragma once

#include <memory>
#include <vector>

#include "platform/Event.h"
#include "platform/Lock.h"

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

/// Work that can be ended before its time.
class ICancellable {
 public:
    /// From any thread; does not wait for the end.
    virtual void Cancel() noexcept = 0;

 protected:
    ~ICancellable() = default;
};

/// Whether the result of a piece of work is still wanted. Safe to use from any thread.
class CAbandonment {
 public:
    /// It is not, from now on.
    void Abandon() noexcept;
    /// Is set once the work is abandoned; null when the process has no descriptor left.
    std::shared_ptr<CEvent> Event();
    /// Cancels `work`, unless it is gone by then, once the whole is abandoned; at once when it is already.
    void Add(std::weak_ptr<ICancellable> work);

 private:
    CMutex m_lock{LockRank::Innermost};  // guards:
    std::shared_ptr<CEvent> m_event;     // made when it is asked for
    std::vector<std::weak_ptr<ICancellable>> m_work;
    bool m_isAbandoned = false;
};

/// The event that tells the calling thread that its work was abandoned, by a client that left for instance;
/// null when nobody can tell. For whoever waits for long.
std::shared_ptr<CEvent> WorkAbandoned();

/// Cancels `work` once the calling thread's work is abandoned.
void CancelWhenAbandoned(std::weak_ptr<ICancellable> work);

/// Makes an abandonment that of the calling thread's work for the object's life.
class CAbandonmentScope {
 public:
    explicit CAbandonmentScope(CAbandonment& abandonment) noexcept;
    ~CAbandonmentScope();
    CAbandonmentScope(const CAbandonmentScope&) = delete;
    CAbandonmentScope& operator=(const CAbandonmentScope&) = delete;

 private:
    CAbandonment* const m_previous;
};

}  // namespace quorbel
