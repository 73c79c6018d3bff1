#include "tools/minidump/TracedThreads.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <elf.h>
#include <filesystem>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace quorbel {

namespace {

using std::chrono::steady_clock;

/// How long the process may take to allow being traced.
constexpr std::chrono::seconds kAllowing{5};
/// How long a thread may take to stop: one in the middle of something that cannot be interrupted is left out.
constexpr std::chrono::milliseconds kStopping{1000};

void Pause() noexcept {
    const timespec pause{0, 1'000'000};
    ::nanosleep(&pause, nullptr);
}

/// A register set of a stopped thread; the number of its bytes, 0 for none.
std::size_t ReadRegisters(std::int32_t thread, int set, void* registers, std::size_t size) noexcept {
    iovec place{registers, size};
    return ::ptrace(PTRACE_GETREGSET, thread, set, &place) == 0 ? place.iov_len : 0;
}

bool ReadAllRegisters(CTracedThread& thread) {
    if (ReadRegisters(thread.id, NT_PRSTATUS, &thread.registers, sizeof thread.registers) == 0) return false;
    Ignore(ReadRegisters(thread.id, NT_PRFPREG, &thread.floatingPoint, sizeof thread.floatingPoint));
    constexpr std::size_t kLargest = 64 << 10;
    thread.extendedState.resize(kLargest);
    thread.extendedState.resize(
        ReadRegisters(thread.id, NT_X86_XSTATE, thread.extendedState.data(), kLargest));
    return true;
}

/// Waits until the thread stands; false when it has ended or does not stop.
bool WaitForStop(CTracedThread& thread) noexcept {
    const auto deadline = steady_clock::now() + kStopping;
    for (;;) {
        int status = 0;
        const pid_t changed = ::waitpid(thread.id, &status, __WALL | WNOHANG);
        if (changed == thread.id) {
            if (!WIFSTOPPED(status)) return false;
            if (status >> 16 != PTRACE_EVENT_STOP) thread.signal = WSTOPSIG(status);
            return true;
        }
        if (changed < 0 || steady_clock::now() > deadline) return false;
        Pause();
    }
}

}  // namespace

ErrorCode CTracedThreads::StopOne(std::int32_t thread) {
    if (::ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0) return ErrorFromErrno(errno);
    if (::ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0) return ErrorFromErrno(errno);
    CTracedThread stopped;
    stopped.id = thread;
    if (!WaitForStop(stopped)) return ErrorCode::WaitTimeout;
    if (!ReadAllRegisters(stopped)) return ErrorFromErrno(errno);
    m_threads.push_back(std::move(stopped));
    return ErrorCode::Success;
}

std::string CTracedThreads::Stop(std::uint32_t process, std::uint32_t first) {
    const std::string folder = "/proc/" + std::to_string(process) + "/task/";
    if (::access(folder.c_str(), F_OK) != 0) return "there is no process " + std::to_string(process);
    if (::access((folder + std::to_string(first)).c_str(), F_OK) != 0)
        return "process " + std::to_string(process) + " has no thread " + std::to_string(first);
    const auto deadline = steady_clock::now() + kAllowing;
    const auto thread = static_cast<std::int32_t>(first);
    ErrorCode error = StopOne(thread);
    // The process names its tracer only once it knows it.
    for (; error == ErrorCode::AccessDenied && steady_clock::now() < deadline; error = StopOne(thread))
        Pause();
    if (error == ErrorCode::AccessDenied) return "process " + std::to_string(process) + " may not be traced";
    if (error != ErrorCode::Success) return "thread " + std::to_string(first) + " cannot be stopped";
    m_seen.push_back(thread);
    while (StopNewOnes(process)) continue;
    return {};
}

/// Threads that still ran may have started others: false when there were none.
bool CTracedThreads::StopNewOnes(std::uint32_t process) {
    bool isAny = false;
    std::error_code error;
    const std::string folder = "/proc/" + std::to_string(process) + "/task";
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename();
        std::int32_t thread = 0;
        std::from_chars(name.data(), name.data() + name.size(), thread);
        if (std::find(m_seen.begin(), m_seen.end(), thread) != m_seen.end()) continue;
        isAny = true;
        m_seen.push_back(thread);
        Ignore(StopOne(thread));
    }
    return isAny;
}

void CTracedThreads::Release() noexcept {
    for (const CTracedThread& thread : m_threads)
        Ignore(::ptrace(PTRACE_DETACH, thread.id, nullptr, static_cast<long>(thread.signal)));
    m_threads.clear();
}

}  // namespace quorbel
