#include "platform/File.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "platform/LocalPath.h"

namespace quorbel {

namespace {

/// Times beyond what 64 bits hold (the years 1677 to 2262) wrap around: they still tell versions apart.
std::int64_t Nanoseconds(const timespec& time) noexcept {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
                                     static_cast<std::uint64_t>(time.tv_nsec));
}

CResult<CFileStamp> ToStamp(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) return ErrorCode::FileNotFound;
    return CFileStamp{status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
                      Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim)};
}

ErrorCode WriteAll(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = ::write(descriptor, content.data(), content.size());
        if (count < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (count > 0) content.remove_prefix(static_cast<std::size_t>(count));
    }
    return ErrorCode::Success;
}

CResult<CFileStamp> StampOfLocal(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return ErrorFromErrno(errno);
    return ToStamp(status);
}

CResult<CFileStamp> StampOfOpen(const CFileDescriptor& file) {
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) return ErrorFromErrno(errno);
    return ToStamp(status);
}

mode_t ModeFor(FileReaders readers) noexcept {
    return readers == FileReaders::Owner ? 0600 : 0644;
}

}  // namespace

CResult<CFile> CFile::Open(std::wstring_view path) {
    auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    // Opening a device may have effects, so its kind is looked at first; what is opened in the end is looked
    // at again, since the name may have changed hands.
    if (const auto before = StampOfLocal(local.Value()); !before.IsOk()) return before.Error();
    CFileDescriptor descriptor(::open(local.Value().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
    const auto stamp = StampOfOpen(descriptor);
    if (!stamp.IsOk()) return stamp.Error();
    return CFile(std::move(local).Value(), std::move(descriptor), stamp.Value());
}

CResult<CFileStamp> CFile::StampNow() const {
    return StampOfLocal(m_localPath);
}

ErrorCode CFile::LoadContent() {
    std::string content(static_cast<std::size_t>(m_stamp.size), '\0');
    for (std::size_t filled = 0; filled < content.size();) {
        const auto count =
            Read(filled, {reinterpret_cast<std::uint8_t*>(content.data()) + filled, content.size() - filled});
        if (!count.IsOk()) return count.Error();
        if (count.Value() == 0) return ErrorCode::Busy;
        filled += count.Value();
    }
    const auto stamp = StampOfOpen(m_descriptor);
    if (!stamp.IsOk() || stamp.Value() != m_stamp) return ErrorCode::Busy;
    m_content = std::move(content);
    m_descriptor = CFileDescriptor();
    return ErrorCode::Success;
}

CResult<std::size_t> CFile::Read(std::uint64_t offset, std::span<std::uint8_t> buffer) const {
    if (m_content) {
        if (offset >= m_content->size()) return std::size_t{0};
        return m_content->copy(reinterpret_cast<char*>(buffer.data()), buffer.size(),
                               static_cast<std::size_t>(offset));
    }
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

ErrorCode CreateNewFile(std::wstring_view path, std::string_view content, FileReaders readers) {
    const auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    const CFileDescriptor file(::open(
        local.Value().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, ModeFor(readers)));
    if (!file.IsOpen()) return ErrorFromErrno(errno);
    ErrorCode error = WriteAll(file.Get(), content);
    if (error == ErrorCode::Success && ::fsync(file.Get()) != 0) error = ErrorFromErrno(errno);
    if (error != ErrorCode::Success) ::unlink(local.Value().c_str());
    return error;
}

ErrorCode ReplaceFile(std::wstring_view path, std::string_view content, FileReaders readers) {
    const auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    const std::string beside = local.Value() + ".new";
    ::unlink(beside.c_str());  // what a process that was killed may have left
    CFileDescriptor file(
        ::open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, ModeFor(readers)));
    if (!file.IsOpen()) return ErrorFromErrno(errno);
    ErrorCode error = WriteAll(file.Get(), content);
    if (error == ErrorCode::Success && ::rename(beside.c_str(), local.Value().c_str()) != 0)
        error = ErrorFromErrno(errno);
    if (error != ErrorCode::Success) ::unlink(beside.c_str());
    return error;
}

ErrorCode CreateFolder(std::wstring_view path) {
    const auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    return ::mkdir(local.Value().c_str(), 0700) == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
}

CResult<CFileDescriptor> OpenFolder(std::wstring_view path) {
    const auto local = ToLocalPath(path);
    if (!local.IsOk()) return local.Error();
    CFileDescriptor descriptor(
        ::open(local.Value().c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY | O_NONBLOCK));
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
