#include "platform/fault/PreparedProgram.h"

#include <cerrno>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace quorbel {

namespace {

using std::chrono::milliseconds;

/// How long a killed program may take to be gone.
constexpr milliseconds kDying{1000};

enum class Child { Succeeded, Failed, Runs };

Child WaitFor(pid_t process, milliseconds patience) noexcept {
    constexpr milliseconds kLook{5};
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        int status = 0;
        const pid_t ended = ::waitpid(process, &status, WNOHANG);
        // The wait status of an end with exit status 0 is itself 0.
        if (ended == process) return status == 0 ? Child::Succeeded : Child::Failed;
        // Nobody's child: its end was taken by somebody who waits for all of them, and is not known here.
        if (ended < 0 && errno == ECHILD) return Child::Succeeded;
        if (std::chrono::steady_clock::now() >= deadline) return Child::Runs;
        const timespec pause{0, std::chrono::nanoseconds(kLook).count()};
        ::nanosleep(&pause, nullptr);
    }
}

/// For a kernel that lets nobody trace a process that has not said so; others refuse the call.
void LetTrace(pid_t process) noexcept {
    Ignore(::prctl(PR_SET_PTRACER, static_cast<unsigned long>(process), 0, 0, 0));
}

}  // namespace

CResult<std::unique_ptr<CPreparedProgram>> CPreparedProgram::Create(std::filesystem::path program) {
    std::unique_ptr<CPreparedProgram> prepared(new CPreparedProgram(std::move(program)));
    if (const ErrorCode error = prepared->Prepare(); error != ErrorCode::Success) return error;
    return prepared;
}

ErrorCode CPreparedProgram::Prepare() {
    ::posix_spawn_file_actions_init(&m_files);
    ::posix_spawnattr_init(&m_attributes);
    sigset_t all;
    ::sigfillset(&all);
    sigset_t none;
    ::sigemptyset(&none);
    int error = ::posix_spawn_file_actions_addopen(&m_files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (error == 0)
        error = ::posix_spawn_file_actions_addopen(&m_files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (error == 0) error = ::posix_spawn_file_actions_addclosefrom_np(&m_files, STDERR_FILENO + 1);
    if (error == 0) error = ::posix_spawnattr_setsigdefault(&m_attributes, &all);
    if (error == 0) error = ::posix_spawnattr_setsigmask(&m_attributes, &none);
    if (error == 0)
        error = ::posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    return ErrorFromErrno(error);
}

CPreparedProgram::~CPreparedProgram() {
    ::posix_spawn_file_actions_destroy(&m_files);
    ::posix_spawnattr_destroy(&m_attributes);
}

ErrorCode CPreparedProgram::Run(char* const* arguments, milliseconds patience) const noexcept {
    pid_t process = 0;
    const int error = ::posix_spawn(&process, Path(), &m_files, &m_attributes, arguments, environ);
    if (error != 0) return ErrorFromErrno(error);
    LetTrace(process);
    const Child outcome = WaitFor(process, patience);
    if (outcome == Child::Runs) {
        Ignore(::kill(process, SIGKILL));
        Ignore(WaitFor(process, kDying));
    }
    LetTrace(0);
    switch (outcome) {
        case Child::Succeeded: return ErrorCode::Success;
        case Child::Failed: return ErrorCode::GenFailure;
        case Child::Runs: return ErrorCode::WaitTimeout;
    }
    return ErrorCode::GenFailure;
}

}  // namespace quorbel
