#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "LibService/Status.h"
#include "LibService/ThreadSet.h"
#include "platform/Event.h"
#include "platform/Lock.h"

namespace quorbel {

/// The service's long-running work: each item runs on a thread of a set, in the multithreaded apartment, and
/// is counted until it has ended and its failure stands in the event log. Safe to use from any thread.
class CWorkItems {
 public:
    /// What an item does until it is done or `stop` (manual reset, shared by all items) is set.
    using Work = std::function<CStatus(CEvent& stop)>;

    /// `threads` outlives the items. Fails when the process has no descriptor left.
    static CResult<std::unique_ptr<CWorkItems>> Create(CThreadSet& threads);
    /// No work is running any more: stop it and wait first.
    ~CWorkItems() = default;

    /// Starts an item; `name`, of static life, is its thread's name meanwhile. The work's error, or a
    /// standard exception that leaves it (message 0xC0000068), is written to the event log. Errors: message
    /// 0xC0000065 when memory is short, and those of CThreadSet::Run.
    CStatus Run(const Work& work, const char* name);

    /// Asks every item to end, those that start later included.
    void Stop() noexcept { m_stop->Set(); }
    /// What Stop sets, for whoever outlives the call that was given it.
    const std::shared_ptr<CEvent>& StopEvent() const noexcept { return m_stop; }
    /// Returns when no item is running.
    void Wait() noexcept;
    /// Set as long as no item is running (manual reset).
    CEvent& NoWorkRunning() const noexcept { return *m_noWorkRunning; }

    /// Public for the library's allocation only.
    CWorkItems(CThreadSet& threads, std::shared_ptr<CEvent> stop, std::shared_ptr<CEvent> noWorkRunning);

 private:
    struct Item;
    static void RunItem(void* item);
    void Begin();
    void End();

    CThreadSet& m_threads;
    const std::shared_ptr<CEvent> m_stop;
    const std::shared_ptr<CEvent> m_noWorkRunning;
    CMutex m_lock{LockRank::Innermost};  // guards, and keeps the event in step with:
    std::size_t m_running = 0;
};

}  // namespace quorbel
