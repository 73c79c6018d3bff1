#include "platform/Terminal.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <unistd.h>

namespace quorbel {

namespace {

void BlockBrokenPipe() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

bool StandardOutputIsTerminal() noexcept {
    return ::isatty(STDOUT_FILENO) == 1;
}

CResult<std::unique_ptr<CTerminalWriter>> CTerminalWriter::Open(int descriptor) {
    // Not blocking is a property of the open file, which the shell and other programs share: hence a new one.
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    CFileDescriptor opened(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened.IsOpen()) return ErrorFromErrno(errno);
    return std::make_unique<CTerminalWriter>(std::move(opened));
}

ErrorCode CTerminalWriter::Write(std::string_view bytes, CEvent& stop) {
    BlockBrokenPipe();
    while (!bytes.empty()) {
        const ssize_t count = ::write(m_descriptor.Get(), bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return ErrorFromErrno(errno);
        std::array<pollfd, 2> entries{{{m_descriptor.Get(), POLLOUT, 0}, {stop.Descriptor(), POLLIN, 0}}};
        if (::poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (entries[1].revents != 0) return ErrorCode::Cancelled;
    }
    return ErrorCode::Success;
}

}  // namespace quorbel
