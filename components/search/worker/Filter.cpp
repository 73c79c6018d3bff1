#include "components/search/worker/Filter.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/FileDescriptor.h"

namespace quorbel {

namespace {

constexpr std::size_t kMostComplaints = 8 << 10;

struct CPipe {
    CFileDescriptor out;
    CFileDescriptor in;

    bool Open() noexcept {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) return false;
        out = CFileDescriptor(ends[0]);
        in = CFileDescriptor(ends[1]);
        return true;
    }
};

/// Starts it with standard descriptors of its own and no other; 0 or an errno value.
int Spawn(pid_t& process, std::vector<std::string>& words, int input, int output, int complaints) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::string variable = "LC_ALL=C.UTF-8";
    char* environment[] = {variable.data(), nullptr};
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_adddup2(&files, input, 0);
    ::posix_spawn_file_actions_adddup2(&files, output, 1);
    ::posix_spawn_file_actions_adddup2(&files, complaints, 2);
    const int result = ::posix_spawn(&process, arguments[0], &files, nullptr, arguments.data(), environment);
    ::posix_spawn_file_actions_destroy(&files);
    return result;
}

/// Takes what can be read; false at the end.
bool Take(int pipe, std::string& to) {
    constexpr std::size_t kStep = 64 << 10;
    const std::size_t had = to.size();
    to.resize(had + kStep);
    const ssize_t got = ::read(pipe, to.data() + had, kStep);
    to.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return got > 0 || (got < 0 && errno == EINTR);
}

/// Reads both pipes up to their ends, or until there is too much output.
void Collect(const CFileDescriptor& output, const CFileDescriptor& complaints, std::size_t mostOutput,
             CFilterRun& run) {
    pollfd pipes[] = {{output.Get(), POLLIN, 0}, {complaints.Get(), POLLIN, 0}};
    while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
        if (::poll(pipes, 2, -1) < 0 && errno != EINTR) return;
        if (pipes[0].fd >= 0 && pipes[0].revents != 0 && !Take(pipes[0].fd, run.output)) pipes[0].fd = -1;
        if (pipes[1].fd >= 0 && pipes[1].revents != 0 && !Take(pipes[1].fd, run.complaints)) pipes[1].fd = -1;
        if (run.complaints.size() > kMostComplaints) run.complaints.resize(kMostComplaints);
        run.isTooMuch = run.output.size() > mostOutput;
        if (run.isTooMuch) return;
    }
}

}  // namespace

CFilterRun RunFilter(std::vector<std::string> words, int input, std::size_t mostOutput) {
    CFilterRun run;
    CPipe output;
    CPipe complaints;
    if (!output.Open() || !complaints.Open()) {
        run.error = errno;
        return run;
    }
    pid_t process = -1;
    run.error = Spawn(process, words, input, output.in.Get(), complaints.in.Get());
    if (run.error != 0) return run;
    output.in = CFileDescriptor();
    complaints.in = CFileDescriptor();
    Collect(output.out, complaints.out, mostOutput, run);
    // Whoever writes more is ended by that.
    output.out = CFileDescriptor();
    complaints.out = CFileDescriptor();
    while (::waitpid(process, &run.status, 0) < 0 && errno == EINTR) {
    }
    return run;
}

}  // namespace quorbel
