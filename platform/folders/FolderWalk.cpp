#include "platform/folders/FolderWalk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/magic.h>
#include <optional>
#include <sys/stat.h>
#include <sys/vfs.h>

namespace quorbel {

namespace {

constexpr int kMaximumLinks = 40;  // as the kernel's own limit

/// File systems whose folders are made up by the kernel, and change without any notification.
constexpr auto kKernelFileSystems = std::to_array<std::uint32_t>(
    {PROC_SUPER_MAGIC, SYSFS_MAGIC, CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC, DEBUGFS_MAGIC, TRACEFS_MAGIC});

/// File systems whose folders change without any notification: by other machines, or by a process that serves
/// them.
constexpr auto kSilentFileSystems = std::to_array<std::uint32_t>({
    NFS_SUPER_MAGIC, SMB_SUPER_MAGIC,   CIFS_SUPER_MAGIC,   SMB2_SUPER_MAGIC, FUSE_SUPER_MAGIC,
    V9FS_MAGIC,      AFS_SUPER_MAGIC,   AFS_FS_MAGIC,       CEPH_SUPER_MAGIC, CODA_SUPER_MAGIC,
    NCP_SUPER_MAGIC, OCFS2_SUPER_MAGIC, AUTOFS_SUPER_MAGIC,
    0x01161970,  // GFS2
    0x0BD00BD0,  // Lustre
    0x47504653,  // GPFS
    0x19830326,  // BeeGFS
    0xBACBACBC,  // VMware shared folders
    0x786F4256,  // VirtualBox shared folders
});

std::optional<std::uint32_t> FileSystemOf(int folder) noexcept {
    struct statfs status;
    if (::fstatfs(folder, &status) != 0) return std::nullopt;
    return static_cast<std::uint32_t>(status.f_type);
}

}  // namespace

bool TellsItsChanges(int folder) noexcept {
    const auto magic = FileSystemOf(folder);
    return magic && std::ranges::count(kSilentFileSystems, *magic) == 0 &&
           std::ranges::count(kKernelFileSystems, *magic) == 0;
}

bool IsMadeByKernel(int folder) noexcept {
    const auto magic = FileSystemOf(folder);
    return magic && std::ranges::count(kKernelFileSystems, *magic) != 0;
}

WalkEnd CFolderWalk::Go(std::string_view path) {
    if (!path.starts_with('/')) return WalkEnd::NotFollowed;
    PutAhead(path);
    Step step = EnterRoot();
    while (step == Step::Taken && !m_ahead.empty()) {
        const std::string name = std::move(m_ahead.back());
        m_ahead.pop_back();
        step = Take(name);
    }
    switch (step) {
        case Step::Taken: return WalkEnd::Folder;
        case Step::Nothing: return WalkEnd::Nothing;
        case Step::NotFollowed: return WalkEnd::NotFollowed;
    }
    return WalkEnd::NotFollowed;
}

void CFolderWalk::PutAhead(std::string_view path) {
    while (!path.empty()) {
        const auto separator = path.rfind('/');
        const auto begin = separator == path.npos ? 0 : separator + 1;
        const auto name = path.substr(begin);
        if (!name.empty() && name != ".") m_ahead.emplace_back(name);
        path = path.substr(0, begin == 0 ? 0 : separator);
    }
}

CFolderWalk::Step CFolderWalk::Enter(CFileDescriptor folder) {
    if (!folder.IsOpen() || !TellsItsChanges(folder.Get())) return Step::NotFollowed;
    m_folder = std::move(folder);
    return Step::Taken;
}

CFolderWalk::Step CFolderWalk::EnterRoot() {
    return Enter(CFileDescriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)));
}

CFolderWalk::Step CFolderWalk::Take(const std::string& name) {
    bool isWatched = true;
    if (name != "..") {
        const int error = m_watch(m_folder.Get(), name);
        // A folder that may be passed but not read cannot be watched; those above a searched folder seldom
        // change.
        isWatched = error == 0;
        if (!isWatched && error != EACCES && error != EPERM) return Step::NotFollowed;
    }
    const Step nothing = isWatched ? Step::Nothing : Step::NotFollowed;
    CFileDescriptor next(::openat(m_folder.Get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!next.IsOpen()) return errno == ENOENT ? nothing : Step::NotFollowed;
    struct stat status;
    if (::fstat(next.Get(), &status) != 0) return Step::NotFollowed;
    if (S_ISLNK(status.st_mode)) return FollowLink(next.Get());
    return S_ISDIR(status.st_mode) ? Enter(std::move(next)) : nothing;
}

CFolderWalk::Step CFolderWalk::FollowLink(int link) {
    std::array<char, PATH_MAX> target;
    const auto length = ::readlinkat(link, "", target.data(), target.size());
    if (length <= 0 || ++m_links > kMaximumLinks) return Step::NotFollowed;
    const std::string_view path(target.data(), static_cast<std::size_t>(length));
    PutAhead(path);
    return path.starts_with('/') ? EnterRoot() : Step::Taken;
}

}  // namespace quorbel
