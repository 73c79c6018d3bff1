#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "LibService/Status.h"
#include "platform/Event.h"

namespace quorbel {

class CPreparedProgram;
struct CFaultRecord;

/// Has memory dumps of this process written by the helper program, on a thread of its own, one at a time. A
/// dump that could not be written is an event, once the faulting thread goes on. It is to live until the
/// other threads have ended.
class CCrashReports {
 public:
    struct COptions {
        std::filesystem::path folder;  ///< for the dumps
        std::wstring serviceName;      ///< the beginning of their names
        /// Called on the reports' thread once the faulting thread goes on. The next fault waits for it, and
        /// the one before may have left any lock taken: it neither locks nor waits, but sets a flag or an
        /// event.
        std::function<void()> afterDump;
        std::filesystem::path helper{};  ///< QbMiniDump.exe beside the running program when empty
        /// A helper that takes longer is killed: the faulting thread waits for it.
        std::chrono::milliseconds patience = std::chrono::seconds(60);
    };

    /// Starts the thread; from then on faults are reported.
    static CStatus Create(COptions options, std::unique_ptr<CCrashReports>& reports);
    ~CCrashReports();

    /// Writes a report of the calling thread and waits until it is written or its writing has failed; null is
    /// an invalid parameter. For handlers of signals.
    void Write(const CFaultRecord* fault) noexcept;
    /// The same when the process ends: waits a limited time, whatever hangs.
    void WriteAtTheEnd(const CFaultRecord* fault) noexcept;

    CCrashReports(COptions options, std::unique_ptr<CPreparedProgram> helper);

 private:
    CStatus Start();
    void Run();
    void End() noexcept;
    void Serve();
    ErrorCode RunHelper(char* file) const noexcept;
    enum class Then { GoOn, End };  ///< what the thread, or the process, does after the report
    void Request(const CFaultRecord* fault, Then then) noexcept;

    // Constant after Create:
    const COptions m_options;
    const std::unique_ptr<CPreparedProgram> m_helper;
    const std::string m_fileStart;  ///< path of a dump up to the service's name
    std::shared_ptr<CEvent> m_stop;
    std::shared_ptr<CEvent> m_turn;     ///< the lock of requests: set while nobody has it
    std::shared_ptr<CEvent> m_request;  ///< there is one
    std::shared_ptr<CEvent> m_done;     ///< it is served
    std::atomic<std::uint32_t> m_ownThread = 0;
    std::atomic<bool> m_hasEnded = false;  ///< nobody serves requests any more

    // Of whoever has the turn, and read by the thread after the request event:
    const CFaultRecord* m_fault = nullptr;
    std::uint32_t m_faultingThread = 0;
    Then m_then = Then::GoOn;

    std::thread m_thread;  // last: it uses everything above
};

}  // namespace quorbel
