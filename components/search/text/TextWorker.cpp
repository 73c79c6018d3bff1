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

/// What came of asking the process.
struct CTextWorker::CAttempt {
    WorkerWait wait = WorkerWait::Failed;
    ErrorCode error = ErrorCode::Cancelled;  // of Stopped
    int status = 0;                          // of Done
    std::string answer;
};

CResult<CExtractedText> CTextWorker::Extract(int file, TextFormat format, const CEvent& stop) {
    const Deadline deadline = std::chrono::steady_clock::now() + m_options.timeLimit;
    if (m_process && !m_process->IsGone()) {
        CAttempt attempt = Ask(file, format, stop, deadline);
        if (attempt.wait != WorkerWait::Failed || !attempt.answer.empty()) return Outcome(attempt);
    }
    // A process that is gone may have ended by itself: only what a new one does is the file's fault.
    m_process.reset();
    if (const std::optional<CResult<CExtractedText>> failure = Start(stop, deadline)) return *failure;
    return Outcome(Ask(file, format, stop, deadline));
}

/// Nothing when there is a process that is ready.
std::optional<CResult<CExtractedText>> CTextWorker::Start(const CEvent& stop, Deadline deadline) {
    auto started = CProcess::Start(m_options);
    if (!started.IsOk()) return started.Error();
    m_process = std::move(started).Value();
    CAttempt attempt;
    attempt.wait = m_process->AwaitReady(stop, deadline, attempt.answer);
    if (attempt.wait == WorkerWait::Done) return std::nullopt;
    if (attempt.answer.empty()) return Outcome(attempt);
    return Failed(DecodeText(TextEncoding::Utf8, CleanLines(attempt.answer)));
}

CTextWorker::CAttempt CTextWorker::Ask(int file, TextFormat format, const CEvent& stop, Deadline deadline) {
    CAttempt attempt;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        attempt.error = ErrorFromErrno(errno);
        attempt.wait = WorkerWait::Stopped;
        return attempt;
    }
    attempt.wait = m_process->Ask(file, format, {CFileDescriptor(ends[0]), CFileDescriptor(ends[1])}, stop,
                                  deadline, attempt.answer, attempt.status);
    return attempt;
}

CResult<CExtractedText> CTextWorker::Outcome(const CAttempt& attempt) {
    switch (attempt.wait) {
        case WorkerWait::Done: break;
        case WorkerWait::Stopped: m_process.reset(); return attempt.error;
        case WorkerWait::Late:
            return Failed("it took longer than " + std::to_string(m_options.timeLimit.count()) + " ms");
        case WorkerWait::Failed:
            return Failed(attempt.answer.size() > kLargestAnswer ? kNonsense : kEndedUnasked);
    }
    if (attempt.status != 0) return Failed(Ending(attempt.status));
    std::optional<CExtractedText> result = DecodeAnswer(attempt.answer);
    if (!result) return Failed(kNonsense);
    return std::move(*result);
}

}  // namespace quorbel
