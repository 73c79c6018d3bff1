#include <random>

#include "LibService/trace/HuffmanCoder.h"
#include "tests/LibService/trace/TraceFileDecoder.h"

namespace quorbel {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Compressed(const Bytes& content) {
    Bytes block;
    const CHuffmanCoder coder(content);
    coder.Compress(content, block);
    EXPECT_EQ(block.size(), coder.CompressedSize());
    return block;
}

/// The code by its definition, step by step: every sum is made anew.
class CPlainCode {
 public:
    explicit CPlainCode(const Bytes& content) {
        for (int value = 0; value <= 256; ++value) m_order.push_back({value, 1});
        std::size_t distinct = 0;
        for (const std::uint8_t byte : content) {
            const auto from = std::find_if(m_order.begin(), m_order.end(),
                                           [byte](const auto& entry) { return entry.first == byte; });
            const auto to = std::find_if(m_order.begin(), m_order.end(),
                                         [from](const auto& entry) { return entry.second == from->second; });
            std::swap(from->first, to->first);
            ++to->second;
            distinct = std::max(distinct, static_cast<std::size_t>(to - m_order.begin()) + 1);
        }
        if (distinct != 0) Split(1, distinct, "");
    }
    std::map<int, std::string> codes;

 private:
    long Above(std::size_t position) const {
        long sum = 0;
        for (std::size_t i = position; i < m_order.size(); ++i) sum += m_order[i].second;
        return sum;
    }
    void Split(std::size_t low, std::size_t high, const std::string& code) {
        if (low == high) {
            codes[m_order[low - 1].first] = code;
        } else if (high == low + 1) {
            codes[m_order[low - 1].first] = code + "0";
            codes[m_order[high - 1].first] = code + "1";
        } else {
            const long target = Above(high) + (Above(low) - Above(high)) / 2;
            std::size_t a = low;
            std::size_t b = high;
            std::size_t middle = low + (high - low) / 2;
            while (b - a > 1 && Above(middle) != target) {
                if (Above(middle) < target)
                    b = middle;
                else
                    a = middle;
                middle = a + (b - a) / 2;
            }
            Split(low, middle, code + "0");
            Split(middle + 1, high, code + "1");
        }
    }
    std::vector<std::pair<int, long>>
        m_order;  // the value and the count at each position, from position 1 on
};

/// Contents of many kinds: even, skewed, long runs, all values, few values.
std::vector<Bytes> Contents() {
    std::vector<Bytes> contents = {{}, {7}, Bytes(10, 'a'), {0, 255}, {1, 2, 3, 2, 1, 1}};
    std::mt19937 random(1);
    for (const double skew : {0.02, 0.2, 0.5, 0.9}) {
        std::geometric_distribution<int> values(skew);
        for (const std::size_t size : {3U, 40U, 1000U, 17000U}) {
            Bytes content(size);
            for (std::uint8_t& byte : content) byte = static_cast<std::uint8_t>(values(random) * 37);
            contents.push_back(std::move(content));
        }
    }
    Bytes every(256);
    for (std::size_t i = 0; i < every.size(); ++i) every[i] = static_cast<std::uint8_t>(255 - i);
    contents.push_back(every);
    return contents;
}

TEST(HuffmanCoder, GivesEveryValueTheCodeOfTheDefinition) {
    for (const Bytes& content : Contents()) {
        const CHuffmanCoder coder(content);
        CPlainCode plain(content);
        for (int value = 0; value < 256; ++value) {
            const auto code = coder.CodeOf(static_cast<std::uint8_t>(value));
            std::string bits;
            for (unsigned i = 0; i < code.length; ++i) bits += (code.bits >> i & 1) != 0 ? '1' : '0';
            ASSERT_EQ(bits, plain.codes[value]) << content.size() << " bytes, value " << value;
        }
    }
}

TEST(HuffmanCoder, WritesBlocksThatAnybodyCanRead) {
    EXPECT_EQ(Compressed(Bytes(10, 'x')), (Bytes{0, 10, 0, 0, 0}));
    // Width 1; the codes of 'a' (1 bit, 0) and 'b' (1 bit, 1) among 254 lengths of 0; a count of 3; a, b, a.
    const Bytes two = Compressed({'a', 'b', 'a'});
    EXPECT_EQ(two.size(), (8U + 256 + 2 + 32 + 3 + 7) / 8);
    for (const Bytes& content : Contents()) {
        if (std::set<std::uint8_t>(content.begin(), content.end()).size() == 1) continue;
        const Bytes block = Compressed(content);
        std::size_t offset = 2;
        const std::string decoded =
            DecodeBlock("##" + std::string(block.begin(), block.end()) + "rest", offset);
        EXPECT_EQ(decoded, std::string(content.begin(), content.end()));
        EXPECT_EQ(offset, 2 + block.size());
        Bytes followed = block;
        followed.insert(followed.end(), {1, 2, 3});
        const auto decompressed = Decompress(followed);
        ASSERT_TRUE(decompressed.has_value());
        EXPECT_EQ(decompressed->content, content);
        EXPECT_EQ(decompressed->blockSize, block.size());
    }
}

TEST(HuffmanCoder, ReadsDamagedBlocksWithoutHarm) {
    Bytes content(600);
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<std::uint8_t>(i * i >> 5);
    const Bytes block = Compressed(content);
    for (std::size_t length = 0; length < block.size(); ++length)
        EXPECT_FALSE(Decompress(std::span(block).first(length)).has_value()) << length;
    for (std::size_t bit = 0; bit < 8 * block.size(); ++bit) {
        Bytes flipped = block;
        flipped[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
        const auto decompressed = Decompress(flipped);
        EXPECT_LE(decompressed ? decompressed->content.size() : 0, CHuffmanBase::kMostContent);
    }
    EXPECT_FALSE(Decompress(Compressed(Bytes(10, 'x'))).has_value());  // it does not say of what it has ten
}

}  // namespace
}  // namespace quorbel
