#include "components/search/worker/Sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "components/search/worker/FileRights.h"
#include "components/search/worker/SystemCallFilter.h"

namespace quorbel {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
/// The sanitizers reserve terabytes of addresses.
constexpr bool kHasShadowMemory = true;
#else
constexpr bool kHasShadowMemory = false;
#endif

bool Limit(__rlimit_resource resource, rlim_t most) noexcept {
    const rlimit limit{most, most};
    return ::setrlimit(resource, &limit) == 0;
}

bool LimitResources(std::size_t memoryLimit) noexcept {
    constexpr rlim_t kOpenFiles = 64;
    return (kHasShadowMemory || Limit(RLIMIT_AS, memoryLimit)) && Limit(RLIMIT_FSIZE, 0) &&
           Limit(RLIMIT_CORE, 0) && Limit(RLIMIT_NOFILE, kOpenFiles);
}

bool BecomeNobody() noexcept {
    // The limit counts all processes of the user: only nobody has few enough of them.
    constexpr rlim_t kProcesses = 256;
    if (::geteuid() != 0) return true;
    // A service without the right to change users cannot give its reader another one: it stays what it is,
    // and depends on the kernel for the files that it must not read.
    if (::setgroups(0, nullptr) != 0) return errno == EPERM;
    return Limit(RLIMIT_NPROC, kProcesses) && ::setresgid(kNobody, kNobody, kNobody) == 0 &&
           ::setresuid(kNobody, kNobody, kNobody) == 0;
}

/// Of what a change of the user resets, so after it.
bool SetProcessFlags() noexcept {
    return ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && ::prctl(PR_SET_DUMPABLE, 0) == 0 &&
           ::prctl(PR_SET_CHILD_SUBREAPER, 1) == 0 && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

std::string Refusal(const char* what) {
    return std::string("it cannot be confined: ") + what + ": " + std::strerror(errno);
}

}  // namespace

std::string EnterSandbox(std::size_t memoryLimit) {
    if (!LimitResources(memoryLimit)) return Refusal("limits");
    if (!BecomeNobody()) return Refusal("user");
    if (!SetProcessFlags()) return Refusal("process flags");
    if (!RestrictFiles()) return Refusal("file rights");
    if (!FilterSystemCalls()) return Refusal("system calls");
    return {};
}

void LimitProcessorTime(std::chrono::seconds most) noexcept {
    const auto seconds = static_cast<rlim_t>(most.count());
    // The second limit ends what survives the signal of the first.
    const rlimit limit{seconds, seconds + 1};
    ::setrlimit(RLIMIT_CPU, &limit);
}

}  // namespace quorbel
