#include "LibService/TraceRing.h"

namespace quorbel {

namespace {

std::size_t SizeOf(const TraceValue& value) {
    constexpr std::size_t kTag = 1;
    constexpr std::size_t kLength = 2;
    if (const auto* text = std::get_if<std::string>(&value)) return kTag + kLength + text->size();
    if (const auto* text = std::get_if<std::u16string>(&value)) return kTag + kLength + 2 * text->size();
    return kTag + sizeof(std::uint64_t);
}

std::size_t SizeOf(const std::vector<TraceValue>& arguments) {
    std::size_t size = 0;
    for (const TraceValue& value : arguments) size += SizeOf(value);
    return size;
}

}  // namespace

bool CTraceRing::Fits(const std::vector<TraceValue>& arguments) {
    return SizeOf(arguments) <= kMostArgumentBytes;
}

bool CTraceRing::Append(CTraceRecord record) {
    const std::size_t size = SizeOf(record.arguments);
    if (size > kMostArgumentBytes) return false;
    record.number = m_next;
    m_records.push_back(std::move(record));
    ++m_next;
    m_bytes += size;
    while (m_records.size() > kMostRecords || m_bytes > kMostBytes) {
        m_bytes -= SizeOf(m_records.front().arguments);
        m_records.pop_front();
    }
    return true;
}

std::optional<CTraceRecord> CTraceRing::Read(std::uint64_t number) const {
    const std::uint64_t oldest = m_next - m_records.size();
    if (number < oldest || number >= m_next) return std::nullopt;
    return m_records[static_cast<std::size_t>(number - oldest)];
}

}  // namespace quorbel
