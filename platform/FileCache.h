#pragma once

#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "platform/Clock.h"
#include "platform/File.h"
#include "platform/Lock.h"

namespace quorbel {

/// Opens files and keeps some of them for the next one to open them, who then pays for one look at the file's
/// stamp: small ones that were not changed lately with their content in memory, others as long as they are
/// not so large that keeping a deleted one from the disk would matter. What it gives is always what opening
/// the file would give. Safe to use from any thread.
class CFileCache {
 public:
    static constexpr std::uint64_t kLargestLoaded = 16384;  ///< bytes of a file that is kept in memory
    static constexpr std::uint64_t kLargestOpen = 1 << 20;  ///< bytes of a file that is kept open
    static constexpr std::size_t kMostBytes = 16 << 20;     ///< of memory for the files that are kept
    static constexpr std::size_t kOpenCounts = 256 << 10;   ///< bytes that an open file counts for

    /// The clock outlives the cache.
    explicit CFileCache(const IClock& clock) noexcept : m_clock(clock) {}

    /// As CFile::Open, but for a file that is kept without opening it.
    CResult<std::shared_ptr<const CFile>> Open(const std::wstring& path);

 private:
    struct CKept {
        std::shared_ptr<const CFile> file;
        std::size_t bytes;
        std::list<std::wstring>::iterator age;
    };

    /// File systems count time in ticks: a file that changed just now may change again without another stamp.
    bool HasSettled(const CFileStamp& stamp) const;
    std::shared_ptr<const CFile> Find(const std::wstring& path) const;
    void Keep(const std::wstring& path, std::shared_ptr<const CFile> file, std::size_t bytes);
    void Drop(const std::wstring& path);
    void DropLocked(std::unordered_map<std::wstring, CKept>::iterator kept);

    const IClock& m_clock;
    mutable CMutex m_lock{LockRank::Innermost};  // guards what follows
    std::unordered_map<std::wstring, CKept> m_kept;
    std::list<std::wstring> m_byAge;  // the oldest first
    std::size_t m_bytes = 0;
};

}  // namespace quorbel
