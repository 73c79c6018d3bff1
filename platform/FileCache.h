#pragma once

#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "platform/File.h"
#include "platform/Lock.h"

namespace quorbel {

/// Opens files and keeps the content of small ones that were not changed lately, so that the next one to open them
/// pays for one look at the file's stamp. What it gives is always what opening the file would give. Safe to use
/// from any thread.
class CFileCache {
 public:
    static constexpr std::uint64_t kLargestKept = 16384;  ///< bytes of one file
    static constexpr std::size_t kMostBytes = 16 << 20;   ///< of all files that are kept

    /// As CFile::Open, but for a file that is kept without opening it.
    CResult<std::shared_ptr<const CFile>> Open(const std::wstring& path);

 private:
    struct CKept {
        std::shared_ptr<const CFile> file;
        std::list<std::wstring>::iterator age;
    };

    std::shared_ptr<const CFile> Find(const std::wstring& path) const;
    void Keep(const std::wstring& path, std::shared_ptr<const CFile> file);
    void Drop(const std::wstring& path);
    void DropLocked(std::unordered_map<std::wstring, CKept>::iterator kept);

    mutable CMutex m_lock{LockRank::Innermost};  // guards what follows
    std::unordered_map<std::wstring, CKept> m_kept;
    std::list<std::wstring> m_byAge;  // the oldest first
    std::size_t m_bytes = 0;
};

}  // namespace quorbel
