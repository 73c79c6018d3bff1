#include "components/search/follow/FileStatus.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

#include "components/search/text/Problems.h"

namespace quorbel {

namespace {

std::int64_t Nanoseconds(const timespec& time) noexcept {
    constexpr std::int64_t kPerSecond = 1'000'000'000;
    return static_cast<std::int64_t>(time.tv_sec) * kPerSecond + time.tv_nsec;
}

}  // namespace

CDocumentStamp StampOf(const struct stat& status) noexcept {
    return {status.st_size, Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim),
            static_cast<std::int64_t>(status.st_ino)};
}

CResult<CFileDescriptor> OpenUnchanged(const std::string& path, const CDocumentStamp& stamp) {
    CFileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen()) return ErrorFromErrno(errno);
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) return ErrorFromErrno(errno);
    if (!S_ISREG(status.st_mode) || StampOf(status) != stamp) return ErrorCode::SharingViolation;
    return file;
}

CResult<std::string> ReadWhole(int file, std::size_t most) {
    constexpr std::size_t kPiece = 64 << 10;
    std::string content;
    for (;;) {
        const std::size_t before = content.size();
        content.resize(before + kPiece);
        const ssize_t count = ::read(file, content.data() + before, kPiece);
        if (count < 0 && errno != EINTR) return ErrorFromErrno(errno);
        content.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (content.size() > most) return ErrorCode::FileTooLarge;
        if (count == 0) return content;
    }
}

std::optional<CExtractedText> LastingProblem(ErrorCode error) {
    const bool isDenied = error == ErrorCode::AccessDenied || error == ErrorCode::PrivilegeNotHeld;
    return isDenied ? std::optional(Problem("it cannot be read: access is denied")) : std::nullopt;
}

}  // namespace quorbel
