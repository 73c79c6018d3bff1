#include "components/search/worker/FileRights.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "components/search/worker/Sandbox.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

namespace {

/// As the newest kernel that is known here has it; an older one takes the beginning.
struct CRuleset {
    std::uint64_t files = 0;
    std::uint64_t ports = 0;
    std::uint64_t scopes = 0;
};

/// What is forbidden unless a rule allows it, by the version of the kernel's interface.
CRuleset RulesetFor(long version, std::size_t& size) noexcept {
    constexpr std::uint64_t kFirstFiles = (1U << 13) - 1;
    constexpr std::uint64_t kRefer = 1U << 13;
    constexpr std::uint64_t kTruncate = 1U << 14;
    constexpr std::uint64_t kDeviceControl = 1U << 15;
    constexpr std::uint64_t kBindAndConnect = 3;
    constexpr std::uint64_t kAbstractSocketsAndSignals = 3;
    CRuleset ruleset{.files = kFirstFiles};
    size = sizeof ruleset.files;
    if (version >= 2) ruleset.files |= kRefer;
    if (version >= 3) ruleset.files |= kTruncate;
    if (version >= 4) ruleset.ports = kBindAndConnect, size += sizeof ruleset.ports;
    if (version >= 5) ruleset.files |= kDeviceControl;
    if (version >= 6) ruleset.scopes = kAbstractSocketsAndSignals, size += sizeof ruleset.scopes;
    return ruleset;
}

/// A path that does not exist needs no rule.
bool AllowReading(int ruleset, const char* path) noexcept {
    const CFileDescriptor file(::open(path, O_PATH | O_CLOEXEC));
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) return true;
    landlock_path_beneath_attr rule{};
    rule.parent_fd = file.Get();
    rule.allowed_access = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_READ_FILE;
    if (S_ISDIR(status.st_mode)) rule.allowed_access |= LANDLOCK_ACCESS_FS_READ_DIR;
    return ::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

}  // namespace

bool RestrictFiles() noexcept {
    constexpr const char* kReadable[] = {
        "/usr",          "/lib", "/lib64", "/bin", "/etc/fonts", "/etc/ld.so.cache", "/etc/alternatives",
        "/etc/localtime"};
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 0) {
        // Nobody may read what everybody may; any other user has files of its own.
        const bool isMissing = errno == ENOSYS || errno == EOPNOTSUPP;
        return isMissing && ::geteuid() == kNobody;
    }
    std::size_t size = 0;
    const CRuleset attributes = RulesetFor(version, size);
    const CFileDescriptor ruleset(
        static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, size, 0)));
    if (!ruleset.IsOpen()) return false;
    for (const char* path : kReadable) {
        if (!AllowReading(ruleset.Get(), path)) return false;
    }
    return ::syscall(SYS_landlock_restrict_self, ruleset.Get(), 0) == 0;
}

}  // namespace quorbel
