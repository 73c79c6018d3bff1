#include "platform/eventlog/EventFile.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

namespace quorbel {

namespace {

constexpr mode_t kMode = 0640;

ErrorCode Lock(int descriptor, int operation, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (::flock(descriptor, operation | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) return ErrorFromErrno(errno);
        if (std::chrono::steady_clock::now() > deadline) return ErrorCode::Busy;
        const timespec pause{0, 500'000};
        ::nanosleep(&pause, nullptr);
    }
    return ErrorCode::Success;
}

bool BearsName(int descriptor, const std::filesystem::path& file) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::stat(file.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool EndsInsideLine(int descriptor, off_t size) {
    char last = '\n';
    return size > 0 && ::pread(descriptor, &last, 1, size - 1) == 1 && last != '\n';
}

}  // namespace

CResult<CFileDescriptor> OpenLocked(const std::filesystem::path& file, int flags, int operation,
                                    std::chrono::milliseconds patience) {
    // Each turn is lost only to a process that renamed the file meanwhile, which takes 16 MiB of entries.
    for (int attempt = 0; attempt < 100; ++attempt) {
        CFileDescriptor descriptor(
            ::open(file.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW, kMode));
        if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
        if (const ErrorCode code = Lock(descriptor.Get(), operation, patience); code != ErrorCode::Success)
            return code;
        if (BearsName(descriptor.Get(), file)) return descriptor;
    }
    return ErrorCode::Busy;
}

CResult<CFileDescriptor> CEventFile::OpenForAppending(std::size_t length) const {
    const std::filesystem::path& file = m_file;
    for (int attempt = 0; attempt < 100; ++attempt) {
        CResult<CFileDescriptor> opened =
            OpenLocked(file, O_RDWR | O_APPEND | O_CREAT, LOCK_EX, m_options.patience);
        if (!opened.IsOk()) return opened.Error();
        struct stat status {};
        if (::fstat(opened.Value().Get(), &status) != 0) return ErrorFromErrno(errno);
        if (!S_ISREG(status.st_mode)) return ErrorCode::BadFileType;
        // The creation mask may have taken the group's right to read; a failure leaves the file stricter.
        if (status.st_size == 0) Ignore(::fchmod(opened.Value().Get(), kMode));
        if (status.st_size == 0 || static_cast<std::uint64_t>(status.st_size) + length <= m_options.limit)
            return opened;
        const std::filesystem::path previous = m_folder / kPreviousEventFile;
        if (::rename(file.c_str(), previous.c_str()) != 0) return ErrorFromErrno(errno);
    }
    return ErrorCode::Busy;
}

ErrorCode CEventFile::Append(std::string_view line) {
    CResult<CFileDescriptor> opened = OpenForAppending(line.size() + 1);
    if (!opened.IsOk()) return opened.Error();
    const int descriptor = opened.Value().Get();
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) return ErrorFromErrno(errno);

    std::string bytes;
    // A machine that lost power may have left half a line: it must not spoil this one.
    if (EndsInsideLine(descriptor, status.st_size)) bytes += '\n';
    bytes.append(line).push_back('\n');
    ssize_t written = 0;
    do {
        written = m_options.write(descriptor, bytes.data(), bytes.size());
    } while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(bytes.size())) return ErrorCode::Success;
    const ErrorCode error = written < 0 ? ErrorFromErrno(errno) : ErrorCode::DiskFull;
    if (written > 0 && ::ftruncate(descriptor, status.st_size) != 0) return ErrorFromErrno(errno);
    return error;
}

void CEventFile::AppendLastWords(std::string_view line) const noexcept {
    constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
    const CFileDescriptor descriptor(::open(m_file.c_str(), kFlags, kMode));
    struct stat status {};
    if (!descriptor.IsOpen() || ::fstat(descriptor.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    // A single call takes its place among other writers' lines by itself.
    if (EndsInsideLine(descriptor.Get(), status.st_size)) Ignore(::write(descriptor.Get(), "\n", 1));
    Ignore(::write(descriptor.Get(), line.data(), line.size()));
}

}  // namespace quorbel
