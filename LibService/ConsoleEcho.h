#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LibService/ServiceLogger.h"
#include "platform/Event.h"
#include "platform/Lock.h"
#include "platform/Terminal.h"

namespace quorbel {

/// Prints records, a line each, from a thread of its own. Who traces never waits: when the reader does not
/// keep up, lines are dropped, and their number is printed once there is room again.
class CConsoleEcho final : public ITraceObserver {
 public:
    static constexpr std::size_t kMostLines = 1000;  ///< that wait to be printed
    static constexpr std::size_t kMostBytes = 1 << 20;

    /// Echoes to what the descriptor refers to.
    static CResult<std::shared_ptr<CConsoleEcho>> Create(int descriptor);
    /// Prints what can be printed without waiting, and ends.
    ~CConsoleEcho() override;

    void OnRecord(std::string_view object, std::wstring_view text) noexcept override;

    /// For Create, which also starts the thread.
    CConsoleEcho(std::unique_ptr<CTerminalWriter> writer, std::shared_ptr<CEvent> stop,
                 std::shared_ptr<CEvent> wake);

 private:
    void Run() noexcept;
    void Queue(std::string line);
    std::string TakeLines();

    const std::unique_ptr<CTerminalWriter> m_writer;
    const std::shared_ptr<CEvent> m_stop;
    const std::shared_ptr<CEvent> m_wake;

    CMutex m_lock{LockRank::ConsoleEcho};  // guards what follows
    std::string m_waiting;
    std::size_t m_lines = 0;
    std::uint64_t m_dropped = 0;

    std::thread m_thread;  // last: it uses everything above
};

}  // namespace quorbel
