#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct archive;

namespace quorbel {

enum class ZipStep {
    Done,  ///< there is an entry, or there are bytes
    End,   ///< there is none any more
    Damaged,
    Encrypted,
    TooMuch,  ///< the entries read expand to more than is allowed
    TooMany,  ///< there are more entries than is allowed
    NoMemory
};

/// Reads the entries of a ZIP file through its central directory. What an entry expands to is known only as
/// it comes, and is bounded.
class CZipReader {
 public:
    /// Reads from an open regular file, from its beginning; moves no offset.
    explicit CZipReader(int file);
    ~CZipReader();
    CZipReader(const CZipReader&) = delete;
    CZipReader& operator=(const CZipReader&) = delete;

    /// Goes to the next entry and says its name, without reading the rest of the one before.
    ZipStep Next(std::string& name);
    /// The next bytes of the entry, valid up to the next call.
    ZipStep Read(std::string_view& bytes);

 private:
    struct CFile;
    struct CRelease {
        void operator()(archive* reader) const noexcept;
    };
    ZipStep Failure(int result) const noexcept;

    std::unique_ptr<CFile> m_file;
    std::unique_ptr<archive, CRelease> m_reader;
    ZipStep m_opened = ZipStep::Damaged;
    std::size_t m_entries = 0;
    std::uint64_t m_entrySize = 0;
    std::uint64_t m_size = 0;
};

/// What the entries that are read may expand to, each and together, and how many there may be.
inline constexpr std::uint64_t kLargestEntry = 128 << 20;
inline constexpr std::uint64_t kLargestEntries = 256 << 20;
inline constexpr std::size_t kMostEntries = 20'000;

}  // namespace quorbel
