#include "LibService/trace/TraceFile.h"

#include <algorithm>
#include <limits>

#include "LibService/trace/HuffmanCoder.h"

namespace quorbel {

namespace {

void PutString(const std::string& text, std::vector<std::uint8_t>& bytes) {
    const std::size_t length = std::min(text.size(), CTraceFile::kMostStringLength);
    bytes.push_back(static_cast<std::uint8_t>(length));
    bytes.insert(bytes.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
}

void PutBlock(const CTraceBlock& block, std::vector<std::uint8_t>& bytes) {
    for (unsigned i = 0; i < sizeof block.first; ++i)
        bytes.push_back(static_cast<std::uint8_t>(block.first >> 8 * i));
    CHuffmanCoder(block.image).Compress(block.image, bytes);
}

}  // namespace

std::vector<std::uint8_t> WriteTraceFile(const CTraceFileImage& image) {
    std::vector<std::uint8_t> bytes;
    bytes.push_back(static_cast<std::uint8_t>(image.objects.size() + image.headers.size()));
    for (const std::string& name : image.objects) PutString(name, bytes);
    for (const auto& [key, value] : image.headers) PutString(key + "::" + value, bytes);
    for (const CTraceBlock& block : image.blocks) PutBlock(block, bytes);
    return bytes;
}

class CTraceFile::CRep {
 public:
    std::map<std::uint64_t, CTraceBuffer>::const_iterator BufferOf(std::uint64_t number) const {
        const auto next = buffers.upper_bound(number);
        return next == buffers.begin() ? buffers.end() : std::prev(next);
    }
    std::size_t IndexOf(const CTraceLoggable& object) const noexcept {
        return static_cast<std::size_t>(std::find(objects.begin(), objects.end(), &object) - objects.begin());
    }

    std::uint64_t firstRecord = 0;
    std::uint64_t endRecord = 0;
    std::uint32_t number = 0;
    std::map<std::string, std::string> headers;
    std::vector<const CTraceLoggable*> objects;     // in order of first use
    std::map<std::uint64_t, CTraceBuffer> buffers;  // by the number of the first record
    CTraceBuffer* newest = nullptr;
    bool isChanged = false;
};

CTraceFile::CTraceFile(std::string serviceName, std::uint64_t firstRecord, std::uint32_t number)
    : m_rep(std::make_shared<CRep>()) {
    m_rep->firstRecord = m_rep->endRecord = firstRecord;
    m_rep->number = number;
    m_rep->headers.emplace("ServiceName", std::move(serviceName));
}

bool CTraceFile::Append(std::uint64_t number, std::uint32_t id, const CTraceLoggable& object,
                        std::uint64_t time, std::span<const std::uint8_t> arguments) {
    CRep& rep = *m_rep;
    const std::size_t index = rep.IndexOf(object);
    const bool isNew = index == rep.objects.size();
    if (isNew && index + rep.headers.size() >= kMostStrings) return false;
    if (isNew) rep.objects.reserve(index + 1);
    const auto append = [&](CTraceBuffer& buffer) {
        return buffer.Append(id, static_cast<std::uint8_t>(index), time, arguments);
    };
    if (rep.newest == nullptr || !append(*rep.newest)) {
        if (rep.buffers.size() == kMostBuffers) return false;
        CTraceBuffer buffer;
        if (!append(buffer)) return false;
        rep.newest = &rep.buffers.emplace(number, std::move(buffer)).first->second;
    }
    if (isNew) rep.objects.push_back(&object);
    rep.endRecord = number + 1;
    return true;
}

std::uint64_t CTraceFile::FirstRecord() const noexcept {
    return m_rep->firstRecord;
}

std::uint64_t CTraceFile::EndRecord() const noexcept {
    return m_rep->endRecord;
}

std::uint32_t CTraceFile::Number() const noexcept {
    return m_rep->number;
}

void CTraceFile::Mark(std::uint64_t first, std::uint64_t end) noexcept {
    for (auto& [firstOfBuffer, buffer] : m_rep->buffers) {
        const std::uint64_t low = std::max(first, firstOfBuffer);
        const std::uint64_t high = std::min(end, firstOfBuffer + buffer.RecordCount());
        if (high <= low) continue;
        buffer.Mark(low, high);
        m_rep->isChanged = true;
    }
}

bool CTraceFile::IsChanged() const noexcept {
    return m_rep->isChanged;
}

void CTraceFile::SetChanged(bool isChanged) noexcept {
    m_rep->isChanged = isChanged;
}

CTraceFileImage CTraceFile::MarkedImage() const {
    CTraceFileImage image;
    image.headers = m_rep->headers;
    for (const CTraceLoggable* object : m_rep->objects) image.objects.emplace_back(object->TraceName());
    for (const auto& [first, buffer] : m_rep->buffers) {
        if (buffer.IsMarked()) image.blocks.push_back({first, buffer.Image()});
    }
    return image;
}

std::optional<CTraceBlock> CTraceFile::BlockOf(std::uint64_t number) const {
    const auto buffer = m_rep->BufferOf(number);
    if (buffer == m_rep->buffers.end() || number >= m_rep->endRecord) return std::nullopt;
    return CTraceBlock{buffer->first, buffer->second.Image()};
}

const std::vector<const CTraceLoggable*>& CTraceFile::Objects() const noexcept {
    return m_rep->objects;
}

}  // namespace quorbel
