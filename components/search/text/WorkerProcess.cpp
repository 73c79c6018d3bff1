#include "components/search/text/WorkerProcess.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "components/search/text/WorkerProtocol.h"

namespace quorbel {

namespace {

using Deadline = std::chrono::steady_clock::time_point;

/// What a process is started with: its socket as the one descriptor beside the standard ones, which lead
/// nowhere; a group of its own; signals as a new process expects them.
class CSpawnSettings {
 public:
    explicit CSpawnSettings(int socket) noexcept {
        ::posix_spawn_file_actions_init(&m_files);
        // First, for the socket may have the number of a standard one.
        ::posix_spawn_file_actions_adddup2(&m_files, socket, kWorkerSocket);
        ::posix_spawn_file_actions_addopen(&m_files, 0, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&m_files, 1, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_adddup2(&m_files, 1, 2);
        ::posix_spawn_file_actions_addclosefrom_np(&m_files, kWorkerSocket + 1);
        ::posix_spawnattr_init(&m_attributes);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&m_attributes, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&m_attributes, &signals);
        ::posix_spawnattr_setpgroup(&m_attributes, 0);
        ::posix_spawnattr_setflags(&m_attributes,
                                   POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~CSpawnSettings() {
        ::posix_spawn_file_actions_destroy(&m_files);
        ::posix_spawnattr_destroy(&m_attributes);
    }
    CSpawnSettings(const CSpawnSettings&) = delete;
    CSpawnSettings& operator=(const CSpawnSettings&) = delete;

    /// 0, or an errno value.
    int Spawn(pid_t& process, std::vector<std::string> words) const {
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        std::string variables[] = {"PATH=/usr/bin:/bin", "LC_ALL=C.UTF-8"};
        char* environment[] = {variables[0].data(), variables[1].data(), nullptr};
        return ::posix_spawn(&process, arguments[0], &m_files, &m_attributes, arguments.data(), environment);
    }

 private:
    posix_spawn_file_actions_t m_files{};
    posix_spawnattr_t m_attributes{};
};

int MillisecondsUntil(Deadline deadline) noexcept {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, INT_MAX));
}

/// Waits until the descriptor can be read or its other end is gone.
WorkerWait AwaitReadable(int descriptor, const CEvent& stop, Deadline deadline) noexcept {
    while (true) {
        pollfd waited[] = {{stop.Descriptor(), POLLIN, 0}, {descriptor, POLLIN, 0}};
        const int ready = ::poll(waited, 2, MillisecondsUntil(deadline));
        if (ready < 0 && errno != EINTR) return WorkerWait::Failed;
        if (ready == 0) return WorkerWait::Late;
        if (ready < 0) continue;
        return waited[0].revents != 0 ? WorkerWait::Stopped : WorkerWait::Done;
    }
}

/// Reads up to the end, or one byte more than the largest answer.
WorkerWait ReadAnswer(int pipe, const CEvent& stop, Deadline deadline, std::string& answer) {
    constexpr std::size_t kStep = 256 << 10;
    while (answer.size() <= kLargestAnswer) {
        const WorkerWait wait = AwaitReadable(pipe, stop, deadline);
        if (wait != WorkerWait::Done) return wait;
        const std::size_t had = answer.size();
        const std::size_t room = std::min(kStep, kLargestAnswer + 1 - had);
        answer.resize(had + room);
        const ssize_t got = ::read(pipe, answer.data() + had, room);
        answer.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got == 0) return WorkerWait::Done;
        if (got < 0 && errno != EINTR && errno != EAGAIN) return WorkerWait::Failed;
    }
    return WorkerWait::Failed;
}

}  // namespace

CResult<std::unique_ptr<CTextWorker::CProcess>> CTextWorker::CProcess::Start(const Options& options) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return ErrorFromErrno(errno);
    CFileDescriptor ours(ends[0]);
    const CFileDescriptor theirs(ends[1]);
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(options.timeLimit).count();
    pid_t process = -1;
    const int result =
        CSpawnSettings(theirs.Get())
            .Spawn(process, {options.program, std::to_string(options.memoryLimit), std::to_string(seconds)});
    if (result != 0) return ErrorFromErrno(result);
    return std::make_unique<CProcess>(process, std::move(ours));
}

CTextWorker::CProcess::CProcess(pid_t process, CFileDescriptor socket) noexcept
    : m_process(process), m_socket(std::move(socket)) {}

CTextWorker::CProcess::~CProcess() {
    // A worker that became another user cannot be ended without the right to: it ends by itself when it is
    // alone.
    ::shutdown(m_socket.Get(), SHUT_RDWR);
    // The group keeps its number as long as its first process was not reaped.
    ::kill(-m_process, SIGKILL);
    while (::waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

bool CTextWorker::CProcess::IsGone() const noexcept {
    pollfd socket{m_socket.Get(), POLLIN, 0};
    return ::poll(&socket, 1, 0) > 0;
}

WorkerWait CTextWorker::CProcess::AwaitMessage(const CEvent& stop, Deadline deadline,
                                               std::string& message) const {
    const WorkerWait wait = AwaitReadable(m_socket.Get(), stop, deadline);
    if (wait != WorkerWait::Done) return wait;
    message.resize(kLargestWorkerMessage);
    const ssize_t got = ::recv(m_socket.Get(), message.data(), message.size(), MSG_DONTWAIT);
    message.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return message.empty() ? WorkerWait::Failed : WorkerWait::Done;
}

WorkerWait CTextWorker::CProcess::AwaitReady(const CEvent& stop, Deadline deadline,
                                             std::string& refusal) const {
    std::string message;
    const WorkerWait wait = AwaitMessage(stop, deadline, message);
    if (wait != WorkerWait::Done) return wait;
    if (message[0] == static_cast<char>(WorkerMessage::Ready)) return WorkerWait::Done;
    if (message[0] == static_cast<char>(WorkerMessage::Refused)) refusal = message.substr(1);
    return WorkerWait::Failed;
}

WorkerWait CTextWorker::CProcess::Ask(int file, TextFormat format, CPipe pipe, const CEvent& stop,
                                      Deadline deadline, std::string& answer, int& status) const {
    if (!SendRequest(m_socket.Get(), format, file, pipe.in.Get())) return WorkerWait::Failed;
    // Only without our own copy does the answer have an end.
    pipe.in = CFileDescriptor();
    WorkerWait wait = ReadAnswer(pipe.out.Get(), stop, deadline, answer);
    if (wait != WorkerWait::Done) return wait;
    std::string message;
    wait = AwaitMessage(stop, deadline, message);
    if (wait != WorkerWait::Done) return wait;
    const std::optional<int> ended = DecodeEnded(message);
    if (!ended) return WorkerWait::Failed;
    status = *ended;
    return WorkerWait::Done;
}

}  // namespace quorbel
