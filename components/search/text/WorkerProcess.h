#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "components/search/text/TextWorker.h"
#include "platform/Event.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// How a wait for the process ended.
enum class WorkerWait {
    Done,
    Late,     ///< the time has passed
    Stopped,  ///< the event was set
    Failed    ///< the process is gone, or said what it may not say
};

/// A running worker process and its end of the socket. At the end of the object the process and all of its
/// children are killed and reaped.
class CTextWorker::CProcess {
 public:
    using Deadline = std::chrono::steady_clock::time_point;

    static CResult<std::unique_ptr<CProcess>> Start(const Options& options);
    CProcess(pid_t process, CFileDescriptor socket) noexcept;
    ~CProcess();
    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;

    /// Has it ended, or said something unasked, since the last answer?
    bool IsGone() const noexcept;
    /// Waits for the word that it works; `refusal` is why it does not, when it says so.
    WorkerWait AwaitReady(const CEvent& stop, Deadline deadline, std::string& refusal) const;
    struct CPipe {
        CFileDescriptor out;
        CFileDescriptor in;
    };
    /// Asks for a file's text and waits for the answer as it came through the pipe, which may be longer than
    /// any answer, and for the status (wait(2)) of the process that gave it.
    WorkerWait Ask(int file, TextFormat format, CPipe pipe, const CEvent& stop, Deadline deadline,
                   std::string& answer, int& status) const;

 private:
    WorkerWait AwaitMessage(const CEvent& stop, Deadline deadline, std::string& message) const;

    const pid_t m_process;
    const CFileDescriptor m_socket;
};

}  // namespace quorbel
