#include "platform/File.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/LocalPath.h"

namespace quorbel {

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

CResult<CFileStamp> ToStamp(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) return ErrorCode::FileNotFound;
    return CFileStamp{status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
                      status.st_mtim.tv_sec * kNanoseconds + status.st_mtim.tv_nsec,
                      status.st_ctim.tv_sec * kNanoseconds + status.st_ctim.tv_nsec};
}

CResult<CFileStamp> StampOfLocal(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return ErrorFromErrno(errno);
    return ToStamp(status);
}

}  // namespace

CResult<CFile> CFile::Open(std::wstring_view path) {
    const auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    // Opening a device may have effects, so its kind is looked at first; what is opened in the end is looked at
    // again, since the name may have changed hands.
    if (const auto before = StampOfLocal(local.Value()); !before.IsOk()) return before.Error();
    CFileDescriptor descriptor(::open(local.Value().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
    struct stat status {};
    if (::fstat(descriptor.Get(), &status) != 0) return ErrorFromErrno(errno);
    const auto stamp = ToStamp(status);
    if (!stamp.IsOk()) return stamp.Error();
    return CFile(std::move(descriptor), stamp.Value());
}

CResult<std::size_t> CFile::Read(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
    for (;;) {
        const ssize_t count =
            ::pread(m_descriptor.Get(), buffer.data(), buffer.size(), static_cast<off_t>(offset));
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) return ErrorFromErrno(errno);
    }
}

CResult<CFileStamp> StampOf(std::wstring_view path) {
    const auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    return StampOfLocal(local.Value());
}

CResult<CFileDescriptor> OpenFolder(std::wstring_view path) {
    const auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    CFileDescriptor descriptor(::open(local.Value().c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY | O_NONBLOCK));
    if (!descriptor.IsOpen()) return errno == ENOTDIR ? ErrorCode::Directory : ErrorFromErrno(errno);
    return descriptor;
}

ErrorCode RaiseOpenFileLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return ErrorFromErrno(errno);
    limit.rlim_cur = limit.rlim_max;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
}

}  // namespace quorbel
