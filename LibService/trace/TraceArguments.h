#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace quorbel {

/// An argument of a record as it was read back: nothing (a text insert of an unknown size), a signed or
/// unsigned integer, a floating point number, a text of 8-bit characters or one of UTF-16. An integer 0 is
/// signed.
using TraceValue =
    std::variant<std::monostate, std::int64_t, std::uint64_t, double, std::string, std::u16string>;

/// Most bytes that the arguments of one record take.
inline constexpr std::size_t kMostArgumentBytes = 8191;

/// Puts arguments one after another into a record's bytes; docs/trace-format.md has the encoding. What goes
/// beyond kMostArgumentBytes is lost, and IsWhole says so.
class CTraceArgumentWriter {
 public:
    void PutNothing() noexcept { PutByte(0); }
    void PutSigned(std::int64_t number) noexcept;
    void PutUnsigned(std::uint64_t number) noexcept;
    void PutFloating(double number) noexcept;
    /// A text that does not fit is left out whole.
    /// @{
    void PutBytes(std::string_view text) noexcept;
    /// The low bytes of the characters, each of which is below 256.
    void PutLowBytes(std::wstring_view text) noexcept;
    void PutUtf16(std::u16string_view text) noexcept;
    /// @}

    bool IsWhole() const noexcept { return m_isWhole; }
    std::span<const std::uint8_t> Bytes() const noexcept { return {m_bytes.data(), m_size}; }

 private:
    void PutByte(std::uint8_t byte) noexcept {
        if (m_size < m_bytes.size()) {
            m_bytes[m_size++] = byte;
        } else {
            m_isWhole = false;
        }
    }
    void PutLow(std::uint64_t number, int bytes) noexcept;
    bool BeginText(std::uint8_t tag, std::size_t length, std::size_t bytes) noexcept;

    std::array<std::uint8_t, kMostArgumentBytes> m_bytes;  // not initialised: what counts is m_size
    std::size_t m_size = 0;
    bool m_isWhole = true;
};

/// The arguments of a record; none when the bytes are not such.
std::optional<std::vector<TraceValue>> DecodeArguments(std::span<const std::uint8_t> bytes);

}  // namespace quorbel
