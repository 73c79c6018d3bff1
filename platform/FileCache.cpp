#include "platform/FileCache.h"

#include <chrono>

namespace quorbel {

bool CFileCache::HasSettled(const CFileStamp& stamp) const {
    constexpr std::chrono::seconds kSettled{2};
    const std::chrono::nanoseconds changed(std::max(stamp.modified, stamp.changed));
    return ToFileTime(changed + kSettled) < m_clock.System();
}

CResult<std::shared_ptr<const CFile>> CFileCache::Open(const std::wstring& path) {
    if (auto kept = Find(path)) {
        const auto stamp = kept->StampNow();
        const bool isLoadable = kept->Descriptor() >= 0 && kept->Stamp().size <= kLargestLoaded;
        const bool isBetterLoaded = isLoadable && HasSettled(kept->Stamp());
        if (stamp.IsOk() && stamp.Value() == kept->Stamp() && !isBetterLoaded) return kept;
        Drop(path);
    }
    auto opened = CFile::Open(path);
    if (!opened.IsOk()) return opened.Error();
    CFile& file = opened.Value();
    const std::uint64_t size = file.Stamp().size;
    const bool isLoaded =
        size <= kLargestLoaded && HasSettled(file.Stamp()) && file.LoadContent() == ErrorCode::Success;
    auto shared = std::make_shared<const CFile>(std::move(file));
    if (size <= kLargestOpen) Keep(path, shared, isLoaded ? static_cast<std::size_t>(size) : kOpenCounts);
    return std::shared_ptr<const CFile>(std::move(shared));
}

std::shared_ptr<const CFile> CFileCache::Find(const std::wstring& path) const {
    const std::lock_guard lock(m_lock);
    const auto found = m_kept.find(path);
    return found == m_kept.end() ? nullptr : found->second.file;
}

void CFileCache::Keep(const std::wstring& path, std::shared_ptr<const CFile> file, std::size_t bytes) {
    const std::lock_guard lock(m_lock);
    if (const auto found = m_kept.find(path); found != m_kept.end()) DropLocked(found);
    bytes += 2 * path.size() * sizeof(wchar_t) + sizeof(CFile);
    m_bytes += bytes;
    m_byAge.push_back(path);
    m_kept.emplace(path, CKept{std::move(file), bytes, std::prev(m_byAge.end())});
    while (m_bytes > kMostBytes) DropLocked(m_kept.find(m_byAge.front()));
}

void CFileCache::Drop(const std::wstring& path) {
    const std::lock_guard lock(m_lock);
    if (const auto found = m_kept.find(path); found != m_kept.end()) DropLocked(found);
}

void CFileCache::DropLocked(std::unordered_map<std::wstring, CKept>::iterator kept) {
    m_bytes -= kept->second.bytes;
    m_byAge.erase(kept->second.age);
    m_kept.erase(kept);
}

}  // namespace quorbel
