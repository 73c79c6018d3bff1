#include "components/search/text/TextWorker.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>

#include "components/search/text/PlainText.h"
#include "components/search/text/Problems.h"
#include "components/search/text/TextEncoding.h"
#include "components/search/text/WorkerProcess.h"
#include "components/search/text/WorkerProtocol.h"

namespace quorbel {

namespace {

constexpr std::string_view kEndedUnasked = "it ended without an answer";
constexpr std::string_view kNonsense = "its answer makes no sense";

/// How a process ended that did not end well.
std::string Ending(int status) {
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU) return "it took too much processor time";
    if (WIFSIGNALED(status)) {
        const char* name = ::sigdescr_np(WTERMSIG(status));
        return "it ended with signal " + std::to_string(WTERMSIG(status)) +
               (name != nullptr ? std::string(" (") + name + ")" : std::string());
    }
    return "it ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

CTextWorker::CTextWorker(Options options) : m_options(std::move(options)) {}

CTextWorker::~CTextWorker() = default;

/// A process that failed once is not asked again.
CExtractedText CTextWorker::Failed(std::string_view how) {
    m_process.reset();
    return Problem("its reader failed: " + std::string(how));
}

CExtractedText CTextWorker::FailedWait(WorkerWait wait, std::string_view how) {
    if (wait != WorkerWait::Late) return Failed(how);
    return Failed("it took longer than " + std::to_string(m_options.timeLimit.count()) + " ms");
}

CResult<CExtractedText> CTextWorker::Extract(int file, TextFormat format, const CEvent& stop) {
    const Deadline deadline = std::chrono::steady_clock::now() + m_options.timeLimit;
    // It may have ended by itself, with the thread that started it: no file is to blame.
    if (m_process && m_process->IsGone()) m_process.reset();
    if (!m_process) {
        auto started = CProcess::Start(m_options);
        if (!started.IsOk()) return started.Error();
        m_process = std::move(started).Value();
        std::string refusal;
        const WorkerWait wait = m_process->AwaitReady(stop, deadline, refusal);
        if (wait == WorkerWait::Stopped) return Stopped();
        if (wait != WorkerWait::Done) {
            return FailedWait(wait, refusal.empty() ? std::string(kEndedUnasked)
                                                    : DecodeText(TextEncoding::Utf8, CleanLines(refusal)));
        }
    }
    return Ask(file, format, stop, deadline);
}

ErrorCode CTextWorker::Stopped() noexcept {
    m_process.reset();
    return ErrorCode::Cancelled;
}

CResult<CExtractedText> CTextWorker::Ask(int file, TextFormat format, const CEvent& stop, Deadline deadline) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return ErrorFromErrno(errno);
    std::string answer;
    int status = 0;
    const WorkerWait wait = m_process->Ask(file, format, {CFileDescriptor(ends[0]), CFileDescriptor(ends[1])},
                                           stop, deadline, answer, status);
    if (wait == WorkerWait::Stopped) return Stopped();
    if (wait != WorkerWait::Done) {
        return FailedWait(wait, answer.size() > kLargestAnswer ? kNonsense : kEndedUnasked);
    }
    if (status != 0) return Failed(Ending(status));
    std::optional<CExtractedText> result = DecodeAnswer(answer);
    if (!result) return Failed(kNonsense);
    return std::move(*result);
}

}  // namespace quorbel
