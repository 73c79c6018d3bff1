#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace quorbel {

/// What both directions of the compressed blocks of trace files share; docs/trace-format.md has their layout.
class CHuffmanBase {
 public:
    static constexpr std::size_t kSymbols = 256;
    /// Most bytes of a block's content that are read; what is written is far below.
    static constexpr std::size_t kMostContent = 1 << 20;

 protected:
    /// Bits in bytes, from bit 0 of each byte on; every field with its least significant bit first.
    class CBitBuffer {
     public:
        explicit CBitBuffer(std::vector<std::uint8_t>& bytes) noexcept : m_bytes(bytes) {}
        /// Adds the low `count` (at most 32) bits.
        void Put(std::uint32_t bits, unsigned count);
        /// Fills the last byte.
        void Finish();

     private:
        std::vector<std::uint8_t>& m_bytes;
        std::uint64_t m_waiting = 0;
        unsigned m_count = 0;
    };
};

/// The Shannon-Fano code of one content, by the frequencies of its bytes. A shared handle; immutable.
class CHuffmanCoder : public CHuffmanBase {
 public:
    /// Builds the code. The content is not kept.
    explicit CHuffmanCoder(std::span<const std::uint8_t> content);

    /// The length of the block in bytes, known before it is written.
    std::size_t CompressedSize() const noexcept;
    /// Appends the block of the content that the code was built from.
    void Compress(std::span<const std::uint8_t> content, std::vector<std::uint8_t>& block) const;

    /// Length (bits) and code of a byte value; the first bit is bit 0. A value that does not occur, and one
    /// that is alone, has length 0.
    struct CCode {
        std::uint8_t length = 0;
        std::uint32_t bits = 0;
    };
    const CCode& CodeOf(std::uint8_t value) const noexcept;

 private:
    class CRep;
    std::shared_ptr<const CRep> m_rep;
};

/// What a block that begins a text of bytes holds.
struct CDecompressed {
    std::vector<std::uint8_t> content;
    std::size_t blockSize = 0;  ///< bytes that the block takes
};

/// Reads the block at the start of `bytes`; none when there is no whole and sound one.
std::optional<CDecompressed> Decompress(std::span<const std::uint8_t> bytes);

}  // namespace quorbel
