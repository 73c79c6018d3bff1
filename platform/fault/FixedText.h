#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quorbel {

/// A text in memory of its own: what does not fit is cut. For code that must neither allocate nor lock.
template <std::size_t kSize>
class CFixedText {
 public:
    CFixedText& Append(std::string_view text) noexcept {
        for (const char character : text) Append(character);
        return *this;
    }
    CFixedText& Append(char character) noexcept {
        if (m_length + 1 < kSize) m_text[m_length++] = character;
        return *this;
    }
    /// Upper-case hexadecimal digits, at least `width` of them.
    CFixedText& AppendHex(std::uint64_t number, int width = 1) noexcept {
        return AppendNumber(number, 16, width);
    }
    CFixedText& AppendDecimal(std::uint64_t number, int width = 1) noexcept {
        return AppendNumber(number, 10, width);
    }
    void Clear() noexcept { m_length = 0; }
    /// Drops line ends and blanks at the end.
    void TrimEnd() noexcept {
        while (m_length != 0 && (m_text[m_length - 1] == '\n' || m_text[m_length - 1] == ' ')) --m_length;
    }

    std::string_view View() const noexcept { return {m_text.data(), m_length}; }
    /// With a zero at its end.
    char* Text() noexcept {
        m_text[m_length] = '\0';
        return m_text.data();
    }
    bool IsFull() const noexcept { return m_length + 1 == kSize; }

 private:
    CFixedText& AppendNumber(std::uint64_t number, unsigned base, int width) noexcept {
        std::array<char, 24> digits;
        std::size_t count = 0;
        for (; number != 0 || width > 0; --width, number /= base)
            digits[count++] = "0123456789ABCDEF"[number % base];
        while (count != 0) Append(digits[--count]);
        return *this;
    }

    std::size_t m_length = 0;
    std::array<char, kSize> m_text{};
};

}  // namespace quorbel
