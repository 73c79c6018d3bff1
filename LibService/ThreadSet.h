#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "LibService/Status.h"
#include "platform/Clock.h"
#include "platform/Event.h"

namespace quorbel {

/// A pool of named threads for work that runs long. A thread is started when work comes and no other is idle;
/// it is used again, and ends when it has been idle for kIdleTime. Safe to use from any thread.
class CThreadSet {
 public:
    static constexpr std::chrono::milliseconds kIdleTime{10'000};
    /// Between two attempts to start a thread, and how many follow the first.
    static constexpr std::chrono::milliseconds kStartPause{100};
    static constexpr int kStartRetries = 100;
    /// The name of a thread without work.
    static constexpr const char* kIdleName = "None";

    using Function = void (*)(void* argument);
    /// Starts a thread under a name (StartThread, platform/Thread.h).
    using Starter = std::function<CResult<std::thread>(const char* name, std::function<void()> work)>;

    /// `clock` outlives the threads. Fails when the process has no descriptor left.
    static CResult<std::unique_ptr<CThreadSet>> Create(IClock& clock);
    static CResult<std::unique_ptr<CThreadSet>> Create(IClock& clock, Starter starter);

    /// Ends the idle threads. Threads that run work are not waited for: they end with it.
    ~CThreadSet();
    CThreadSet(const CThreadSet&) = delete;
    CThreadSet& operator=(const CThreadSet&) = delete;

    /// Has `function` run with `argument` on a thread that bears `name` meanwhile; `name` is static. Nothing
    /// is caught: an exception that leaves the function ends the process. Errors: message 0xC0000065 when
    /// memory is short, and a system error when no thread could be started in all attempts (10 s).
    CStatus Run(Function function, void* argument, const char* name);

    /// Set (automatic reset) when a thread leaves the idle ones, for work or for good, and when one joins
    /// them.
    /// @{
    CEvent& Taken() noexcept;
    CEvent& Idle() noexcept;
    /// @}

    /// Public for the library's allocation only.
    struct State;
    explicit CThreadSet(std::shared_ptr<State> state) noexcept;

 private:
    class CThread;

    /// The threads share it, as those that are busy may outlive the set.
    const std::shared_ptr<State> m_state;
};

}  // namespace quorbel
