#include "LibService/trace/TraceMemory.h"

namespace quorbel {

CTraceMemory::CTraceMemory(std::string name) : m_name(std::move(name)) {
    m_unsaved.reserve(kMostUnsaved);
}

CTraceFile& CTraceMemory::BeginFile() {
    const auto placed = m_files.insert_or_assign(m_next, CTraceFile(m_name, m_next, m_fileCount + 1));
    ++m_fileCount;
    return placed.first->second;
}

bool CTraceMemory::Append(std::uint32_t id, const CTraceLoggable& object, std::uint64_t time,
                          std::span<const std::uint8_t> arguments) {
    CTraceFile& newest = m_files.empty() ? BeginFile() : m_files.rbegin()->second;
    if (!newest.Append(m_next, id, object, time, arguments) &&
        !BeginFile().Append(m_next, id, object, time, arguments)) {
        return false;
    }
    ++m_next;
    while (m_files.size() >= 2 && m_span != 0 && m_next - m_files.begin()->first > m_span) DropOldest();
    return true;
}

void CTraceMemory::DropOldest() {
    const CTraceFile oldest = m_files.begin()->second;
    m_files.erase(m_files.begin());
    if (!oldest.IsChanged()) return;
    Keep(oldest);
    m_hasDropped = true;
}

void CTraceMemory::Keep(const CTraceFile& dropped) noexcept {
    if (m_unsaved.size() == kMostUnsaved) m_unsaved.erase(m_unsaved.begin());
    m_unsaved.push_back(dropped);
}

std::uint64_t CTraceMemory::OldestRecord() const noexcept {
    return m_files.empty() ? m_next : m_files.begin()->first;
}

void CTraceMemory::MarkLast(std::uint64_t count) noexcept {
    const std::uint64_t first = m_next > count ? m_next - count : 0;
    for (auto file = m_files.rbegin(); file != m_files.rend() && file->second.EndRecord() > first; ++file)
        file->second.Mark(first, m_next);
}

std::vector<CTraceFile> CTraceMemory::Changed() const {
    std::vector<CTraceFile> changed = m_unsaved;
    for (const auto& [first, file] : m_files) {
        if (file.IsChanged()) changed.push_back(file);
    }
    return changed;
}

void CTraceMemory::NoteSaved() noexcept {
    m_unsaved.clear();
    for (auto& [first, file] : m_files) file.SetChanged(false);
}

void CTraceMemory::PutBack(const CTraceFile& file) noexcept {
    CTraceFile(file).SetChanged(true);
    if (!m_files.contains(file.FirstRecord())) Keep(file);
}

const CTraceFile* CTraceMemory::FileOf(std::uint64_t number) const noexcept {
    if (number >= m_next) return nullptr;
    const auto next = m_files.upper_bound(number);
    return next == m_files.begin() ? nullptr : &std::prev(next)->second;
}

}  // namespace quorbel
