#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <linux/openat2.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "components/search/worker/Filter.h"
#include "components/search/worker/PdfText.h"
#include "components/search/worker/Sandbox.h"
#include "platform/FileDescriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

constexpr std::size_t kMemory = std::size_t{4} << 30;  // more than the tests before have reserved
constexpr int kDone = 1;
constexpr int kForbidden = 2;
constexpr int kNotConfined = 3;

/// What became of something that was tried in a confined process: kDone or kForbidden.
int Try(const std::function<bool()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (!EnterSandbox(kMemory).empty()) ::_exit(kNotConfined);
        ::_exit(action() ? kDone : kForbidden);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool CanOpen(const std::filesystem::path& path, int flags) {
    return ::open(path.c_str(), flags | O_CLOEXEC, 0600) >= 0;
}

bool HasLandlock() {
    return ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) > 0;
}

TEST(Sandbox, ForbidsWhatReadingADocumentDoesNotNeed) {
    const CTemporaryFolder folder;
    // As open as a file can be, so that it is not its mode that forbids.
    const std::filesystem::path file = folder / "file";
    WriteFile(file, "x");
    ::chmod(folder.Path().c_str(), 0777);
    ::chmod(file.c_str(), 0666);
    const std::string fresh = (folder / "fresh").string();
    const pid_t parent = ::getpid();
    const std::pair<const char*, std::function<bool()>> cases[] = {
        {"write", [&] { return CanOpen(file, O_WRONLY); }},
        {"write and read", [&] { return CanOpen(file, O_RDWR); }},
        {"empty", [&] { return CanOpen(file, O_RDONLY | O_TRUNC); }},
        {"make", [&] { return CanOpen(fresh, O_RDONLY | O_CREAT); }},
        {"make without a name", [&] { return CanOpen(folder.Path(), O_WRONLY | O_TMPFILE); }},
        {"truncate", [&] { return ::truncate(file.c_str(), 0) == 0; }},
        {"remove", [&] { return ::unlink(file.c_str()) == 0; }},
        {"rename", [&] { return ::rename(file.c_str(), fresh.c_str()) == 0; }},
        {"make a folder", [&] { return ::mkdir(fresh.c_str(), 0700) == 0; }},
        {"link", [&] { return ::symlink("x", fresh.c_str()) == 0; }},
        {"change the mode", [&] { return ::chmod(file.c_str(), 0600) == 0; }},
        {"internet", [] { return ::socket(AF_INET, SOCK_STREAM, 0) >= 0; }},
        {"datagrams", [] { return ::socket(AF_INET6, SOCK_DGRAM, 0) >= 0; }},
        {"local sockets", [] { return ::socket(AF_UNIX, SOCK_STREAM, 0) >= 0; }},
        {"signal another", [&] { return ::kill(parent, 0) == 0; }},
        {"signal all", [] { return ::kill(-1, 0) == 0; }},
        {"trace", [&] { return ::ptrace(PTRACE_SEIZE, parent, nullptr, nullptr) == 0; }},
        {"be root", [] { return ::setuid(0) == 0 && ::geteuid() == 0 && ::setuid(1) == 0; }},
        {"leave the group", [] { return ::setsid() >= 0 || ::setpgid(0, 0) == 0; }},
        {"new namespace", [] { return ::unshare(CLONE_NEWUSER) == 0; }},
        {"mount", [&] { return ::mount("none", folder.Path().c_str(), "tmpfs", 0, nullptr) == 0; }},
        {"memory file", [] { return ::memfd_create("x", 0) >= 0; }},
        {"limits of another",
         [&] {
             rlimit limit{};
             return ::prlimit(parent, RLIMIT_CORE, nullptr, &limit) == 0;
         }},
        {"higher limit",
         [] {
             const rlimit limit{1 << 20, 1 << 20};
             return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
         }},
        {"open in another way",
         [] {
             const open_how how{};
             return ::syscall(SYS_openat2, AT_FDCWD, "/usr/lib/os-release", &how, sizeof how) >= 0;
         }},
        {"io_uring", [] { return ::syscall(SYS_io_uring_setup, 1, nullptr) >= 0 || errno == EFAULT; }},
    };
    for (const auto& [name, action] : cases) EXPECT_EQ(Try(action), kForbidden) << name;
    EXPECT_EQ(ReadFile(file), "x");
}

TEST(Sandbox, HidesFilesOfOthers) {
    const CTemporaryFolder folder;
    const std::filesystem::path secret = folder / "secret";
    WriteFile(secret, "x");
    ::chmod(folder.Path().c_str(), 0755);
    ::chmod(secret.c_str(), 0600);
    if (::geteuid() != 0 && !HasLandlock()) GTEST_SKIP() << "nothing but its own files to hide";
    EXPECT_EQ(Try([&] { return CanOpen(secret, O_RDONLY); }), kForbidden);
    if (!HasLandlock()) return;
    ::chmod(secret.c_str(), 0644);
    EXPECT_EQ(Try([&] { return CanOpen(secret, O_RDONLY); }), kForbidden);
    EXPECT_EQ(Try([] { return CanOpen("/proc/self/environ", O_RDONLY); }), kForbidden);
    EXPECT_EQ(Try([] { return CanOpen("/etc/passwd", O_RDONLY); }), kForbidden);
}

TEST(Sandbox, LeavesWhatReadingADocumentNeeds) {
    const CTemporaryFolder folder;
    WriteFile(folder / "file", "x");
    const CFileDescriptor before(::open((folder / "file").c_str(), O_RDONLY | O_CLOEXEC));
    const std::pair<const char*, std::function<bool()>> cases[] = {
        {"installed files", [] { return CanOpen("/usr/lib/os-release", O_RDONLY); }},
        {"files that are open",
         [&] {
             char byte = 0;
             return ::pread(before.Get(), &byte, 1, 0) == 1;
         }},
        {"a program",
         [&] {
             const CFilterRun run = RunFilter({kPdfProgram, "-v"}, before.Get(), 1000);
             return run.error == 0 && WIFEXITED(run.status) && !run.complaints.empty();
         }},
    };
    for (const auto& [name, action] : cases) EXPECT_EQ(Try(action), kDone) << name;
}

TEST(Sandbox, BoundsProcessorTime) {
    const auto work = [] {
        LimitProcessorTime(std::chrono::seconds(1));
        for (volatile bool goesOn = true; goesOn;) {
        }
        return true;
    };
    EXPECT_EQ(Try(work), -SIGXCPU);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Sandbox, BoundsMemory) {
    const auto take = [](std::size_t size) {
        return ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED;
    };
    EXPECT_EQ(Try([&] { return take(kMemory / 8); }), kDone);
    EXPECT_EQ(Try([&] { return take(kMemory); }), kForbidden);
}
#endif

}  // namespace
}  // namespace quorbel
