#include "data/QueryFile.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

/// A file that changes while it is read is read again, so many times.
constexpr int kTries = 10;

CResult<std::string> ReadBytes(const CFile& file) {
    if (file.Stamp().size > kLargestQueryFile) return ErrorCode::FileTooLarge;
    std::string bytes(static_cast<std::size_t>(file.Stamp().size), '\0');
    for (std::size_t offset = 0; offset != bytes.size();) {
        const auto read = file.Read(
            offset, {reinterpret_cast<std::uint8_t*>(bytes.data()) + offset, bytes.size() - offset});
        if (!read.IsOk()) return read.Error();
        if (read.Value() == 0) return ErrorCode::SharingViolation;
        offset += read.Value();
    }
    return bytes;
}

/// SharingViolation when the file was written meanwhile. (One that was replaced was read as it had been.)
CResult<std::string> ReadOnce(CFileCache& files, const std::wstring& path) {
    const auto file = files.Open(path);
    if (!file.IsOk()) return file.Error();
    auto bytes = ReadBytes(*file.Value());
    const bool isLoaded = file.Value()->Descriptor() < 0;
    if (!bytes.IsOk() || isLoaded) return bytes;
    const auto now = file.Value()->StampNow();
    const CFileStamp& before = file.Value()->Stamp();
    const bool isSameFile =
        now.IsOk() && now.Value().device == before.device && now.Value().inode == before.inode;
    if (isSameFile && now.Value() != before) return ErrorCode::SharingViolation;
    return bytes;
}

}  // namespace

CResult<std::wstring> ReadQueryFile(CFileCache& files, const std::wstring& path) {
    for (int tries = kTries;;) {
        const auto bytes = ReadOnce(files, path);
        if (bytes.IsOk()) return FromUtf8(bytes.Value());
        if (bytes.Error() != ErrorCode::SharingViolation || --tries == 0) return bytes.Error();
    }
}

}  // namespace quorbel
