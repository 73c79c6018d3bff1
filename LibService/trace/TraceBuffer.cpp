#include "LibService/trace/TraceBuffer.h"

#include <array>
#include <bit>
#include <cstring>

#include "LibService/trace/TraceArguments.h"

namespace quorbel {

namespace {

constexpr std::size_t kFixedFields = 4;  ///< of a record: two indices, length and width
constexpr unsigned kLengthBits = 13;     ///< of the field of length and width
constexpr std::size_t kIdentifierSize = 4;
static_assert(kMostArgumentBytes == (1 << kLengthBits) - 1);

void PutLow(std::uint8_t* place, std::uint64_t number, std::size_t bytes) noexcept {
    for (std::size_t i = 0; i < bytes; ++i, number >>= 8) place[i] = static_cast<std::uint8_t>(number);
}

std::uint64_t TakeLow(std::span<const std::uint8_t>& from, std::size_t bytes) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes; ++i) number |= std::uint64_t{from[i]} << 8 * i;
    from = from.subspan(bytes);
    return number;
}

std::size_t BytesOf(std::uint64_t number) noexcept {
    return number == 0 ? 1 : (static_cast<std::size_t>(std::bit_width(number)) + 7) / 8;
}

}  // namespace

/// The identifiers of a buffer, in order of first use.
class CTraceBuffer::CIdentifiers {
 public:
    std::size_t Count() const noexcept { return m_count; }
    std::uint32_t At(std::size_t index) const noexcept { return m_identifiers[index]; }

    /// The identifier's index; Count() when it is new.
    std::size_t Find(std::uint32_t id) const noexcept {
        const std::uint8_t index = m_slots[SlotOf(id)];
        return index == kFree ? m_count : index;
    }
    void Add(std::uint32_t id) noexcept {
        m_slots[SlotOf(id)] = static_cast<std::uint8_t>(m_count);
        m_identifiers[m_count++] = id;
    }

 private:
    static constexpr std::uint8_t kFree = 0xFF;
    static constexpr unsigned kSlotBits = 9;

    /// The slot of an identifier, or the free one where it belongs. Half of them are always free.
    std::size_t SlotOf(std::uint32_t id) const noexcept {
        std::size_t slot = id * 0x9E3779B1U >> (32 - kSlotBits);
        while (m_slots[slot] != kFree && m_identifiers[m_slots[slot]] != id)
            slot = (slot + 1) % m_slots.size();
        return slot;
    }

    std::array<std::uint32_t, kMostIdentifiers> m_identifiers{};
    std::array<std::uint8_t, 1U << kSlotBits> m_slots = [] {
        std::array<std::uint8_t, 1U << kSlotBits> slots{};
        slots.fill(kFree);
        return slots;
    }();
    std::size_t m_count = 0;
};

class CTraceBuffer::CRep {
 public:
    std::unique_ptr<std::uint8_t[]> block{new std::uint8_t[kBlockSize]};
    std::size_t used = kLengthSize;
    CIdentifiers identifiers;
    std::uint64_t lastTime = 0;
    std::size_t records = 0;
    std::uint64_t lowestMarked = ~std::uint64_t{0};
    std::uint64_t highestMarked = 0;
};

CTraceBuffer::CTraceBuffer() : m_rep(std::make_shared<CRep>()) {}

bool CTraceBuffer::Append(std::uint32_t id, std::uint8_t object, std::uint64_t time,
                          std::span<const std::uint8_t> arguments) noexcept {
    CRep& rep = *m_rep;
    const std::size_t identifier = rep.identifiers.Find(id);
    const bool isNew = identifier == rep.identifiers.Count();
    if (isNew && identifier == kMostIdentifiers) return false;
    const std::uint64_t delta = time - rep.lastTime;
    const std::size_t deltaSize = BytesOf(delta);
    const std::size_t identifiers = rep.identifiers.Count() + (isNew ? 1 : 0);
    const std::size_t left = kBlockSize - rep.used;
    if (left <= kIdentifierSize * identifiers + 6 + arguments.size()) return false;
    if (left < kFixedFields + deltaSize + arguments.size()) return false;
    if (isNew) rep.identifiers.Add(id);
    std::uint8_t* const place = rep.block.get() + rep.used;
    place[0] = static_cast<std::uint8_t>(identifier);
    place[1] = object;
    PutLow(place + 2, arguments.size() | (deltaSize - 1) << kLengthBits, 2);
    PutLow(place + kFixedFields, delta, deltaSize);
    if (!arguments.empty()) std::memcpy(place + kFixedFields + deltaSize, arguments.data(), arguments.size());
    rep.used += kFixedFields + deltaSize + arguments.size();
    rep.lastTime = time;
    ++rep.records;
    return true;
}

std::size_t CTraceBuffer::RecordCount() const noexcept {
    return m_rep->records;
}

void CTraceBuffer::Mark(std::uint64_t first, std::uint64_t end) noexcept {
    m_rep->lowestMarked = std::min(m_rep->lowestMarked, first);
    m_rep->highestMarked = std::max(m_rep->highestMarked, end);
}

bool CTraceBuffer::IsMarked() const noexcept {
    return m_rep->highestMarked > m_rep->lowestMarked;
}

std::vector<std::uint8_t> CTraceBuffer::Image() const {
    const CRep& rep = *m_rep;
    std::vector<std::uint8_t> image(rep.used + kIdentifierSize * rep.identifiers.Count());
    PutLow(image.data(), rep.used, kLengthSize);
    std::memcpy(image.data() + kLengthSize, rep.block.get() + kLengthSize, rep.used - kLengthSize);
    for (std::size_t i = 0; i < rep.identifiers.Count(); ++i)
        PutLow(image.data() + rep.used + kIdentifierSize * i, rep.identifiers.At(i), kIdentifierSize);
    return image;
}

CTraceImageReader::CTraceImageReader(std::span<const std::uint8_t> image, std::uint64_t first) noexcept
    : m_number(first) {
    const std::size_t used = image.size() < CTraceBuffer::kLengthSize ? 0 : image[0] | image[1] << 8;
    m_isSound = used >= CTraceBuffer::kLengthSize && used <= image.size();
    if (!m_isSound) return;
    m_records = image.first(used).subspan(CTraceBuffer::kLengthSize);
    m_identifiers = image.subspan(used);
}

std::optional<CTraceEntry> CTraceImageReader::Refuse() noexcept {
    m_isSound = false;
    m_records = {};
    return std::nullopt;
}

std::optional<CTraceEntry> CTraceImageReader::Next() noexcept {
    if (m_records.empty()) return std::nullopt;
    if (m_records.size() < kFixedFields) return Refuse();
    const auto identifier = static_cast<std::size_t>(TakeLow(m_records, 1));
    CTraceEntry entry;
    entry.object = static_cast<std::uint8_t>(TakeLow(m_records, 1));
    const std::uint64_t lengthAndWidth = TakeLow(m_records, 2);
    const auto deltaSize = static_cast<std::size_t>(lengthAndWidth >> kLengthBits) + 1;
    const std::size_t length = lengthAndWidth & kMostArgumentBytes;
    if (m_records.size() < deltaSize + length) return Refuse();
    if (kIdentifierSize * (identifier + 1) > m_identifiers.size()) return Refuse();
    auto idBytes = m_identifiers.subspan(kIdentifierSize * identifier);
    entry.id = static_cast<std::uint32_t>(TakeLow(idBytes, kIdentifierSize));
    m_time += TakeLow(m_records, deltaSize);
    entry.time = m_time;
    entry.number = m_number++;
    entry.arguments = m_records.first(length);
    m_records = m_records.subspan(length);
    return entry;
}

}  // namespace quorbel
