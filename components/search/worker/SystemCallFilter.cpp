#include "components/search/worker/SystemCallFilter.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>

namespace quorbel {

namespace {

/// Allowed with any arguments: none of them reaches beyond the process, its children and its open files.
/// Names that an architecture does not have are left out there.
constexpr const char* kAllowed[] = {
    // open files
    "read", "pread64", "readv", "preadv", "write", "writev", "lseek", "close", "dup", "dup2", "dup3", "pipe",
    "pipe2", "poll", "ppoll", "select", "pselect6", "recvmsg", "fadvise64",
    // what files there are
    "fstat", "newfstatat", "fstatat64", "stat", "lstat", "statx", "fstatfs", "access", "faccessat",
    "readlink", "readlinkat", "getdents64", "getcwd",
    // memory
    "mmap", "mprotect", "munmap", "mremap", "madvise", "brk", "membarrier",
    // signals of its own
    "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "sigaltstack", "restart_syscall",
    // children
    "vfork", "fork", "execve", "wait4", "waitid", "exit", "exit_group",
    // itself
    "getpid", "gettid", "getppid", "getuid", "geteuid", "getgid", "getegid", "getpgrp", "getrlimit",
    "getrusage", "setrlimit", "set_tid_address", "set_robust_list", "rseq", "arch_prctl", "futex",
    "sched_yield", "sched_getaffinity", "umask", "times",
    // the time, the machine, randomness
    "clock_gettime", "clock_getres", "gettimeofday", "time", "nanosleep", "clock_nanosleep", "uname",
    "sysinfo", "getrandom", "getcpu"};

constexpr scmp_datum_t kOpenChanges = O_ACCMODE | O_CREAT | O_TRUNC | (O_TMPFILE & ~O_DIRECTORY);
constexpr scmp_datum_t kNewNamespaces =
    CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET;

constexpr int kDescriptorCommands[] = {F_DUPFD, F_DUPFD_CLOEXEC, F_GETFD, F_SETFD, F_GETFL, F_SETFL};

using Filter = std::unique_ptr<void, decltype(&::seccomp_release)>;

/// Whether libseccomp took the rule; its answer is an errno value below 0.
bool IsTaken(int result) noexcept {
    if (result < 0) errno = -result;
    return result == 0;
}

bool Allow(const Filter& filter, const char* name) noexcept {
    const int number = ::seccomp_syscall_resolve_name(name);
    return number < 0 || IsTaken(::seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, number, 0));
}

bool Rule(const Filter& filter, std::uint32_t action, const char* name, scmp_arg_cmp condition) noexcept {
    const int number = ::seccomp_syscall_resolve_name(name);
    return number < 0 || IsTaken(::seccomp_rule_add_array(filter.get(), action, number, 1, &condition));
}

/// Opening for reading is left; what would write is told that it may not.
bool AllowOpening(const Filter& filter, const char* name, unsigned flags) noexcept {
    const std::uint32_t denied = SCMP_ACT_ERRNO(EACCES);
    return Rule(filter, SCMP_ACT_ALLOW, name, SCMP_CMP64(flags, SCMP_CMP_MASKED_EQ, kOpenChanges, 0)) &&
           Rule(filter, denied, name, SCMP_CMP64(flags, SCMP_CMP_MASKED_EQ, O_ACCMODE, O_WRONLY)) &&
           Rule(filter, denied, name, SCMP_CMP64(flags, SCMP_CMP_MASKED_EQ, O_ACCMODE, O_RDWR));
}

bool AllowOnConditions(const Filter& filter) noexcept {
    return AllowOpening(filter, "open", 1) && AllowOpening(filter, "openat", 2) &&
           Rule(filter, SCMP_ACT_ALLOW, "clone", SCMP_CMP64(0, SCMP_CMP_MASKED_EQ, kNewNamespaces, 0)) &&
           // Descriptors and their flags, but no signals for others.
           std::ranges::all_of(kDescriptorCommands,
                               [&filter](int command) {
                                   return Rule(
                                       filter, SCMP_ACT_ALLOW, "fcntl",
                                       SCMP_CMP64(1, SCMP_CMP_EQ, static_cast<scmp_datum_t>(command)));
                               }) &&
           // Its own limits only.
           Rule(filter, SCMP_ACT_ALLOW, "prlimit64", SCMP_CMP64(0, SCMP_CMP_EQ, 0)) &&
           Rule(filter, SCMP_ACT_ALLOW, "prctl", SCMP_CMP64(0, SCMP_CMP_EQ, PR_SET_PDEATHSIG)) &&
           Rule(filter, SCMP_ACT_ALLOW, "prctl", SCMP_CMP64(0, SCMP_CMP_EQ, PR_SET_NAME));
}

}  // namespace

bool FilterSystemCalls() noexcept {
    const Filter filter(::seccomp_init(SCMP_ACT_ERRNO(ENOSYS)), &::seccomp_release);
    if (!filter) {
        errno = ENOMEM;
        return false;
    }
    for (const char* name : kAllowed) {
        if (!Allow(filter, name)) return false;
    }
    return AllowOnConditions(filter) && IsTaken(::seccomp_load(filter.get()));
}

}  // namespace quorbel
