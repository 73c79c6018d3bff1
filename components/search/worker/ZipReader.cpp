#include "components/search/worker/ZipReader.h"

#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace quorbel {

/// What libarchive reads from: a place in a file, and the bytes there.
struct CZipReader::CFile {
    int file = -1;
    std::int64_t offset = 0;
    std::int64_t size = 0;
    std::array<char, 64 << 10> buffer{};

    static la_ssize_t Read(archive*, void* data, const void** bytes) noexcept {
        auto& self = *static_cast<CFile*>(data);
        ssize_t got = -1;
        do {
            got = ::pread(self.file, self.buffer.data(), self.buffer.size(), self.offset);
        } while (got < 0 && errno == EINTR);
        if (got < 0) return ARCHIVE_FATAL;
        self.offset += got;
        *bytes = self.buffer.data();
        return got;
    }

    static la_int64_t Skip(archive*, void* data, la_int64_t count) noexcept {
        auto& self = *static_cast<CFile*>(data);
        const std::int64_t skipped = std::clamp<std::int64_t>(count, 0, self.size - self.offset);
        self.offset += skipped;
        return skipped;
    }

    static la_int64_t Seek(archive*, void* data, la_int64_t offset, int whence) noexcept {
        auto& self = *static_cast<CFile*>(data);
        const std::int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? self.offset : self.size;
        self.offset = std::clamp<std::int64_t>(base + offset, 0, self.size);
        return self.offset;
    }
};

void CZipReader::CRelease::operator()(archive* reader) const noexcept {
    ::archive_read_free(reader);
}

CZipReader::CZipReader(int file) : m_file(std::make_unique<CFile>()), m_reader(::archive_read_new()) {
    struct stat status {};
    if (!m_reader || ::fstat(file, &status) != 0) return;
    m_file->file = file;
    m_file->size = status.st_size;
    archive* reader = m_reader.get();
    ::archive_read_support_format_zip_seekable(reader);
    // Names are UTF-8, whatever the locale.
    ::archive_read_set_option(reader, "zip", "hdrcharset", "UTF-8");
    ::archive_read_set_callback_data(reader, m_file.get());
    ::archive_read_set_read_callback(reader, &CFile::Read);
    ::archive_read_set_skip_callback(reader, &CFile::Skip);
    ::archive_read_set_seek_callback(reader, &CFile::Seek);
    if (::archive_read_open1(reader) == ARCHIVE_OK) m_opened = ZipStep::Done;
}

CZipReader::~CZipReader() = default;

ZipStep CZipReader::Failure(int result) const noexcept {
    if (result == ARCHIVE_EOF) return ZipStep::End;
    return ::archive_errno(m_reader.get()) == ENOMEM ? ZipStep::NoMemory : ZipStep::Damaged;
}

ZipStep CZipReader::Next(std::string& name) {
    if (m_opened != ZipStep::Done) return m_opened;
    archive_entry* entry = nullptr;
    const int result = ::archive_read_next_header(m_reader.get(), &entry);
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) return Failure(result);
    if (++m_entries > kMostEntries) return ZipStep::TooMany;
    const char* path = ::archive_entry_pathname_utf8(entry);
    if (path == nullptr) path = ::archive_entry_pathname(entry);
    name = path != nullptr ? path : "";
    m_entrySize = 0;
    return ::archive_entry_is_encrypted(entry) != 0 ? ZipStep::Encrypted : ZipStep::Done;
}

ZipStep CZipReader::Read(std::string_view& bytes) {
    const void* data = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    const int result = ::archive_read_data_block(m_reader.get(), &data, &size, &offset);
    if (result != ARCHIVE_OK) return Failure(result);
    m_entrySize += size;
    m_size += size;
    if (m_entrySize > kLargestEntry || m_size > kLargestEntries) return ZipStep::TooMuch;
    bytes = {static_cast<const char*>(data), size};
    return ZipStep::Done;
}

}  // namespace quorbel
