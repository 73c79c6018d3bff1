#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/FileDescriptor.h"

namespace quorbel {

/// What tells versions of a file apart: it changes whenever the file does.
struct CFileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;     ///< bytes
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    std::int64_t changed = 0;   ///< nanoseconds since 1970, attributes included
    bool operator==(const CFileStamp&) const = default;
};

/// A regular file open for reading. Others may read, write and replace it meanwhile.
class CFile {
 public:
    /// Paths are as ToLocalPath takes them. Never blocks: what is no regular file (a folder, FIFO, device) is
    /// FileNotFound.
    static CResult<CFile> Open(std::wstring_view path);

    const CFileStamp& Stamp() const noexcept { return m_stamp; }
    /// The stamp of what the file's name names now.
    CResult<CFileStamp> StampNow() const;
    /// Reads up to the buffer's size at an offset; 0 at the end of the file. Safe to use from any thread.
    CResult<std::size_t> Read(std::uint64_t offset, std::span<std::uint8_t> buffer) const;
    /// -1 once the content was loaded.
    int Descriptor() const noexcept { return m_descriptor.Get(); }

    /// Reads the whole content into memory, from where it is served from now on, and closes the file. Busy
    /// when it changes meanwhile; nothing has happened after a failure.
    ErrorCode LoadContent();

 private:
    CFile(std::string localPath, CFileDescriptor descriptor, const CFileStamp& stamp) noexcept
        : m_localPath(std::move(localPath)), m_descriptor(std::move(descriptor)), m_stamp(stamp) {}
    std::string m_localPath;
    CFileDescriptor m_descriptor;
    CFileStamp m_stamp;
    std::optional<std::string> m_content;
};

/// The stamp of a regular file, without opening it; FileNotFound for anything else.
CResult<CFileStamp> StampOf(std::wstring_view path);

/// Who may read a file; its owner alone may write to it.
enum class FileReaders { Owner, Everyone };

/// Creates a file with this content, on disk when this returns. AlreadyExists when the name is taken, also by
/// a symbolic link; after any other failure there is no such file.
ErrorCode CreateNewFile(std::wstring_view path, std::string_view content, FileReaders readers);

/// Writes a file beside its name and then gives it the name, replacing what bears it: whoever looks finds the
/// old or the new content whole. Not forced to disk. After a failure everything is as before.
ErrorCode ReplaceFile(std::wstring_view path, std::string_view content, FileReaders readers);

/// Creates a folder, for its owner alone, in one that exists; AlreadyExists when the name is taken.
ErrorCode CreateFolder(std::wstring_view path);

/// Opens a folder for following its changes; Directory when the path is no folder.
CResult<CFileDescriptor> OpenFolder(std::wstring_view path);

/// Raises this process's limit of open files to its maximum.
ErrorCode RaiseOpenFileLimit();

}  // namespace quorbel
