#include "components/search/worker/WorkerLoop.h"

#include <cerrno>
#include <new>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "components/search/text/Problems.h"
#include "components/search/text/WorkerProtocol.h"
#include "components/search/worker/FileReader.h"
#include "components/search/worker/Sandbox.h"

namespace quorbel {

namespace {

bool WriteAll(int to, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(to, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::string EncodedText(const CWorkerRequest& request) {
    try {
        return EncodeAnswer(ReadTextOfFile(request.file.Get(), request.format));
    } catch (const std::bad_alloc&) {
    }
    return EncodeAnswer(Problem(kNoMemory));
}

/// The life of the child that reads a file.
[[noreturn]] void Answer(const CWorkerRequest& request, std::chrono::seconds timeLimit) {
    LimitProcessorTime(timeLimit);
    const bool isWritten = WriteAll(request.answer.Get(), EncodedText(request));
    ::_exit(isWritten ? 0 : 1);
}

/// Says how the child ended; false when this process must end as well.
bool Reap(int socket, pid_t child) noexcept {
    int status = 0;
    pid_t reaped = -1;
    do {
        reaped = ::waitpid(child, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    // Its own children have become ours.
    while ((reaped = ::waitpid(-1, nullptr, WNOHANG)) > 0) {
    }
    return WriteAll(socket, EncodeEnded(status)) && reaped < 0;
}

}  // namespace

void RunWorkerLoop(int socket, std::chrono::seconds timeLimit) noexcept {
    const char ready = static_cast<char>(WorkerMessage::Ready);
    if (!WriteAll(socket, {&ready, 1})) return;
    while (true) {
        pid_t child = -1;
        {
            const std::optional<CWorkerRequest> request = ReceiveRequest(socket);
            if (!request) return;
            child = ::fork();
            if (child == 0) {
                ::close(socket);
                Answer(*request, timeLimit);
            }
        }
        if (child < 0 || !Reap(socket, child)) return;
    }
}

}  // namespace quorbel
