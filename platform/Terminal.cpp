#include "platform/Terminal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
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
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) return ErrorFromErrno(errno);
    if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
        // Not blocking is a property of the open file, which the shell and other programs share: hence a new
        // one. Of a file it would begin at the start, and a terminal may be another user's.
        const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
        CFileDescriptor opened(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (opened.IsOpen()) return std::make_unique<CTerminalWriter>(std::move(opened), Way::AtOnce);
    }
    CFileDescriptor shared(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    if (!shared.IsOpen()) return ErrorFromErrno(errno);
    return std::make_unique<CTerminalWriter>(std::move(shared),
                                             S_ISSOCK(status.st_mode) ? Way::Send : Way::WhenReady);
}

/// Waits until there may be room; Cancelled when `stop` comes first.
ErrorCode CTerminalWriter::WaitForRoom(const CEvent& stop) const {
    for (;;) {
        std::array<pollfd, 2> entries{{{m_descriptor.Get(), POLLOUT, 0}, {stop.Descriptor(), POLLIN, 0}}};
        if (::poll(entries.data(), entries.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return ErrorFromErrno(errno);
        }
        if (entries[0].revents != 0) return ErrorCode::Success;
        if (entries[1].revents != 0) return ErrorCode::Cancelled;
    }
}

/// Writes what can be written now, -1 with errno when that is nothing.
ssize_t CTerminalWriter::WriteSome(std::string_view bytes) const noexcept {
    switch (m_way) {
        case Way::AtOnce: return ::write(m_descriptor.Get(), bytes.data(), bytes.size());
        case Way::Send:
            return ::send(m_descriptor.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        case Way::WhenReady:
            return ::write(m_descriptor.Get(), bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
    }
    return 0;
}

ErrorCode CTerminalWriter::Write(std::string_view bytes, CEvent& stop) {
    BlockBrokenPipe();
    bool mustWait = m_way == Way::WhenReady;
    while (!bytes.empty()) {
        if (mustWait) {
            if (const ErrorCode error = WaitForRoom(stop); error != ErrorCode::Success) return error;
        }
        const ssize_t count = WriteSome(bytes);
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            mustWait = true;
        } else if (errno != EINTR) {
            return ErrorFromErrno(errno);
        }
    }
    return ErrorCode::Success;
}

}  // namespace quorbel
