#include "LibService/trace/HuffmanCoder.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace quorbel {

void CHuffmanBase::CBitBuffer::Put(std::uint32_t bits, unsigned count) {
    m_waiting |= std::uint64_t{bits} << m_count;
    for (m_count += count; m_count >= 8; m_count -= 8, m_waiting >>= 8)
        m_bytes.push_back(static_cast<std::uint8_t>(m_waiting));
}

void CHuffmanBase::CBitBuffer::Finish() {
    if (m_count != 0) m_bytes.push_back(static_cast<std::uint8_t>(m_waiting));
    m_waiting = m_count = 0;
}

namespace {

constexpr unsigned kWidthBits = 8;
constexpr unsigned kCountBits = 32;
constexpr unsigned kLongestCode = 32;

/// How often each value occurs: the values in order of falling frequency, from position 1 on. Every value,
/// and an end symbol that is never used, begins with the count 1.
class CFrequencies {
 public:
    static constexpr std::size_t kPositions = CHuffmanBase::kSymbols + 2;

    explicit CFrequencies(std::span<const std::uint8_t> content) {
        std::fill(m_counts.begin() + 1, m_counts.end(), 1);
        std::iota(m_positions.begin(), m_positions.end(), std::uint16_t{1});
        for (std::size_t i = 0; i < m_values.size(); ++i) m_values[i] = static_cast<std::uint16_t>(i - 1);
        for (const std::uint8_t value : content) Count(value);
        for (std::size_t i = kPositions - 1; i-- > 0;) m_above[i] = m_above[i + 1] + m_counts[i + 1];
    }

    /// The number of distinct values, which stand at the positions 1 to this.
    std::size_t Highest() const noexcept { return m_highest; }
    std::uint8_t ValueAt(std::size_t position) const noexcept {
        return static_cast<std::uint8_t>(m_values[position]);
    }
    /// The last position of the lower part when those from `low` to `high` are parted in halves.
    std::size_t Halve(std::size_t low, std::size_t high) const noexcept {
        const std::uint32_t target = m_above[high] + (m_above[low] - m_above[high]) / 2;
        std::size_t middle = low + (high - low) / 2;
        for (std::size_t a = low, b = high; b - a > 1; middle = a + (b - a) / 2) {
            if (m_above[middle] == target) break;
            (m_above[middle] < target ? b : a) = middle;
        }
        return middle;
    }

 private:
    void Count(std::uint8_t value) noexcept {
        const std::size_t from = m_positions[value];
        std::size_t to = from;
        while (m_counts[to - 1] == m_counts[from]) --to;  // position 0 has the count 0
        const std::uint16_t other = m_values[to];
        std::swap(m_values[from], m_values[to]);
        std::swap(m_positions[value], m_positions[other]);
        ++m_counts[to];
        m_highest = std::max(m_highest, to);
    }

    std::array<std::uint32_t, kPositions> m_counts{};
    std::array<std::uint32_t, kPositions> m_above{};   // the sum of the counts above each position
    std::array<std::uint16_t, kPositions> m_values{};  // by position; the end symbol is one more than a byte
    std::array<std::uint16_t, kPositions> m_positions{};  // by value
    std::size_t m_highest = 0;
};

}  // namespace

class CHuffmanCoder::CRep {
 public:
    explicit CRep(std::span<const std::uint8_t> content) {
        const CFrequencies frequencies(content);
        if (frequencies.Highest() != 0) Split(frequencies, 1, frequencies.Highest(), {});
        unsigned longest = 0;
        std::size_t bits = kWidthBits + kCountBits;
        for (const CCode& code : codes) {
            longest = std::max<unsigned>(longest, code.length);
            bits += code.length;
        }
        width = static_cast<unsigned>(std::bit_width(longest));
        for (const std::uint8_t value : content) bits += codes[value].length;
        size = (bits + kSymbols * width + 7) / 8;
    }

    std::array<CCode, kSymbols> codes;
    unsigned width = 0;    ///< bits of the field of a code's length
    std::size_t size = 0;  ///< bytes of the block

 private:
    void Split(const CFrequencies& frequencies, std::size_t low, std::size_t high, CCode code);
};

void CHuffmanCoder::CRep::Split(const CFrequencies& frequencies, std::size_t low, std::size_t high,
                                CCode code) {
    if (low == high) {
        codes[frequencies.ValueAt(low)] = code;
        return;
    }
    // Each side has about half of the counts at most, so the depth stays far below the longest code.
    const std::size_t middle = high == low + 1 ? low : frequencies.Halve(low, high);
    const std::uint32_t bit = std::uint32_t{1} << code.length;
    const auto deeper = static_cast<std::uint8_t>(code.length + 1);
    Split(frequencies, low, middle, {deeper, code.bits});
    Split(frequencies, middle + 1, high, {deeper, code.bits | bit});
}

CHuffmanCoder::CHuffmanCoder(std::span<const std::uint8_t> content)
    : m_rep(std::make_shared<const CRep>(content)) {}

std::size_t CHuffmanCoder::CompressedSize() const noexcept {
    return m_rep->size;
}

const CHuffmanCoder::CCode& CHuffmanCoder::CodeOf(std::uint8_t value) const noexcept {
    return m_rep->codes[value];
}

void CHuffmanCoder::Compress(std::span<const std::uint8_t> content, std::vector<std::uint8_t>& block) const {
    block.reserve(block.size() + m_rep->size);
    CBitBuffer bits(block);
    bits.Put(m_rep->width, kWidthBits);
    for (const CCode& code : m_rep->codes) {
        bits.Put(code.length, m_rep->width);
        bits.Put(code.bits, code.length);
    }
    bits.Put(static_cast<std::uint32_t>(content.size()), kCountBits);
    for (const std::uint8_t value : content) bits.Put(m_rep->codes[value].bits, m_rep->codes[value].length);
    bits.Finish();
}

namespace {

/// Takes bits in the order in which CBitBuffer puts them; beyond the end there are zeros, and IsGood falls.
class CBitReader {
 public:
    explicit CBitReader(std::span<const std::uint8_t> bytes) noexcept : m_bytes(bytes) {}
    bool IsGood() const noexcept { return m_position <= 8 * m_bytes.size(); }
    std::size_t BytesTaken() const noexcept { return (m_position + 7) / 8; }

    unsigned TakeBit() noexcept {
        const std::size_t byte = m_position / 8;
        const unsigned bit = byte < m_bytes.size() ? m_bytes[byte] >> m_position % 8 & 1U : 0;
        ++m_position;
        return bit;
    }
    std::uint32_t Take(unsigned count) noexcept {
        std::uint32_t number = 0;
        for (unsigned i = 0; i < count; ++i) number |= TakeBit() << i;
        return number;
    }

 private:
    std::span<const std::uint8_t> m_bytes;
    std::size_t m_position = 0;  // in bits
};

/// The codes as a tree, read from the root on, a bit a step.
class CCodeTree {
 public:
    /// False when the codes contradict each other.
    bool Add(std::uint8_t value, std::uint32_t bits, unsigned length) {
        std::size_t node = 0;
        for (unsigned i = 0; i < length; ++i) {
            if (m_nodes[node].isLeaf) return false;
            const unsigned bit = bits >> i & 1U;
            if (m_nodes[node].next[bit] == 0) {
                m_nodes[node].next[bit] = static_cast<std::uint16_t>(m_nodes.size());
                m_nodes.emplace_back();
            }
            node = m_nodes[node].next[bit];
        }
        CNode& leaf = m_nodes[node];
        if (leaf.isLeaf || leaf.next[0] != 0 || leaf.next[1] != 0) return false;
        leaf = {{0, 0}, true, value};
        return true;
    }
    std::optional<std::uint8_t> Take(CBitReader& bits) const {
        std::size_t node = 0;
        while (!m_nodes[node].isLeaf) {
            node = m_nodes[node].next[bits.TakeBit()];
            if (node == 0) return std::nullopt;
        }
        return m_nodes[node].value;
    }

 private:
    struct CNode {
        std::array<std::uint16_t, 2> next{};  // 0, the root, is none
        bool isLeaf = false;
        std::uint8_t value = 0;
    };
    std::vector<CNode> m_nodes{1};
};

/// The code table at the start of a block.
std::optional<CCodeTree> TakeCodes(CBitReader& bits) {
    const std::uint32_t width = bits.Take(kWidthBits);
    if (width > std::bit_width(kLongestCode)) return std::nullopt;
    CCodeTree tree;
    for (std::size_t value = 0; value < CHuffmanBase::kSymbols; ++value) {
        const std::uint32_t length = bits.Take(width);
        if (length == 0) continue;
        if (length > kLongestCode) return std::nullopt;
        if (!tree.Add(static_cast<std::uint8_t>(value), bits.Take(length), length)) return std::nullopt;
    }
    return tree;
}

}  // namespace

std::optional<CDecompressed> Decompress(std::span<const std::uint8_t> bytes) {
    CBitReader bits(bytes);
    const auto codes = TakeCodes(bits);
    const std::uint32_t count = codes ? bits.Take(kCountBits) : 0;
    if (!codes || !bits.IsGood() || count > CHuffmanBase::kMostContent) return std::nullopt;
    CDecompressed result;
    result.content.reserve(count);
    while (result.content.size() < count) {
        const auto value = codes->Take(bits);
        if (!value || !bits.IsGood()) return std::nullopt;
        result.content.push_back(*value);
    }
    result.blockSize = bits.BytesTaken();
    return result;
}

}  // namespace quorbel
