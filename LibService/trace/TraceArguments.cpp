#include "LibService/trace/TraceArguments.h"

#include <bit>

namespace quorbel {

namespace {

enum Tag : std::uint8_t {
    kNothing = 0,
    kBytes = 1,
    kUtf16 = 2,
    kZero = 3,
    kSigned = 3,     // and the number of bytes, 1 to 8
    kUnsigned = 11,  // likewise
    kFloating = 20,
};

/// Takes bytes from the front; `isGood` falls when there are too few.
class CArgumentReader {
 public:
    explicit CArgumentReader(std::span<const std::uint8_t> bytes) noexcept : m_rest(bytes) {}
    bool IsAtEnd() const noexcept { return m_rest.empty(); }
    bool IsGood() const noexcept { return m_isGood; }

    std::span<const std::uint8_t> Take(std::size_t count) noexcept {
        if (count > m_rest.size()) {
            m_isGood = false;
            return {};
        }
        const auto taken = m_rest.first(count);
        m_rest = m_rest.subspan(count);
        return taken;
    }
    std::uint8_t TakeByte() noexcept {
        const auto taken = Take(1);
        return taken.empty() ? 0 : taken[0];
    }
    std::uint64_t TakeLow(std::size_t bytes) noexcept {
        std::uint64_t number = 0;
        const auto taken = Take(bytes);
        for (std::size_t i = 0; i < taken.size(); ++i) number |= std::uint64_t{taken[i]} << 8 * i;
        return number;
    }
    std::size_t TakeLength() noexcept {
        const std::size_t high = TakeByte();
        return high << 8 | TakeByte();
    }

 private:
    std::span<const std::uint8_t> m_rest;
    bool m_isGood = true;
};

std::int64_t ExtendSign(std::uint64_t number, std::size_t bytes) noexcept {
    const auto unused = static_cast<int>(64 - 8 * bytes);
    return static_cast<std::int64_t>(number << unused) >> unused;
}

std::u16string TakeUtf16(CArgumentReader& reader) {
    const std::size_t length = reader.TakeLength();
    const auto bytes = reader.Take(2 * length);
    std::u16string text(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    return text;
}

std::optional<TraceValue> TakeValue(CArgumentReader& reader) {
    const std::uint8_t tag = reader.TakeByte();
    if (tag == kNothing) return TraceValue();
    if (tag == kZero) return TraceValue(std::int64_t{0});
    if (tag == kUtf16) return TraceValue(TakeUtf16(reader));
    if (tag == kFloating) return TraceValue(std::bit_cast<double>(reader.TakeLow(8)));
    if (tag > kFloating) return std::nullopt;
    if (tag == kBytes) {
        const auto bytes = reader.Take(reader.TakeLength());
        return TraceValue(std::string(bytes.begin(), bytes.end()));
    }
    if (tag > kUnsigned) return TraceValue(reader.TakeLow(tag - kUnsigned));
    const std::size_t width = tag - kSigned;
    return TraceValue(ExtendSign(reader.TakeLow(width), width));
}

}  // namespace

void CTraceArgumentWriter::PutLow(std::uint64_t number, int bytes) noexcept {
    for (int i = 0; i < bytes; ++i, number >>= 8) PutByte(static_cast<std::uint8_t>(number));
}

void CTraceArgumentWriter::PutSigned(std::int64_t number) noexcept {
    if (number == 0) return PutByte(kZero);
    // Of a negative number, the bits that differ from its sign count, and one bit more for the sign.
    const auto magnitude = static_cast<std::uint64_t>(number < 0 ? ~number : number);
    const int bytes = static_cast<int>(std::bit_width(magnitude)) / 8 + 1;
    PutByte(static_cast<std::uint8_t>(kSigned + bytes));
    PutLow(static_cast<std::uint64_t>(number), bytes);
}

void CTraceArgumentWriter::PutUnsigned(std::uint64_t number) noexcept {
    if (number == 0) return PutByte(kZero);
    const int bytes = (static_cast<int>(std::bit_width(number)) + 7) / 8;
    PutByte(static_cast<std::uint8_t>(kUnsigned + bytes));
    PutLow(number, bytes);
}

void CTraceArgumentWriter::PutFloating(double number) noexcept {
    PutByte(kFloating);
    PutLow(std::bit_cast<std::uint64_t>(number), 8);
}

bool CTraceArgumentWriter::BeginText(std::uint8_t tag, std::size_t length, std::size_t bytes) noexcept {
    constexpr std::size_t kHead = 3;
    if (bytes > m_bytes.size() || m_size + kHead + bytes > m_bytes.size()) {
        m_isWhole = false;
        return false;
    }
    PutByte(tag);
    PutByte(static_cast<std::uint8_t>(length >> 8));
    PutByte(static_cast<std::uint8_t>(length));
    return true;
}

void CTraceArgumentWriter::PutBytes(std::string_view text) noexcept {
    if (!BeginText(kBytes, text.size(), text.size())) return;
    if (!text.empty()) std::memcpy(m_bytes.data() + m_size, text.data(), text.size());
    m_size += text.size();
}

void CTraceArgumentWriter::PutLowBytes(std::wstring_view text) noexcept {
    if (!BeginText(kBytes, text.size(), text.size())) return;
    std::uint8_t* const bytes = m_bytes.data() + m_size;
    for (std::size_t i = 0; i < text.size(); ++i) bytes[i] = static_cast<std::uint8_t>(text[i]);
    m_size += text.size();
}

void CTraceArgumentWriter::PutUtf16(std::u16string_view text) noexcept {
    if (!BeginText(kUtf16, text.size(), 2 * text.size())) return;
    for (const char16_t unit : text) PutLow(unit, 2);
}

std::optional<std::vector<TraceValue>> DecodeArguments(std::span<const std::uint8_t> bytes) {
    std::vector<TraceValue> values;
    for (CArgumentReader reader(bytes); !reader.IsAtEnd();) {
        auto value = TakeValue(reader);
        if (!value || !reader.IsGood()) return std::nullopt;
        values.push_back(std::move(*value));
    }
    return values;
}

}  // namespace quorbel
