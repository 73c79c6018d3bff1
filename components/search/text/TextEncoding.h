#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorbel {

/// UTF-8 by the rules of the Unicode Standard: no surrogates, no overlong forms.
bool IsUtf8(std::string_view bytes) noexcept;

/// Appends a code point; U+FFFD for a number that is none.
void AppendUtf8(std::string& text, std::uint32_t point);

/// The longest beginning of valid UTF-8 that has at most `most` bytes and ends between two characters.
std::string_view CutUtf8(std::string_view text, std::size_t most) noexcept;

/// The encodings that text without any declaration may have.
enum class TextEncoding { Utf8, Utf16LittleEndian, Utf16BigEndian, Windows1252 };

/// By the byte-order mark, which is taken off; none without one.
std::optional<TextEncoding> TakeByteOrderMark(std::string_view& bytes) noexcept;

/// As UTF-8; what is invalid becomes U+FFFD.
std::string DecodeText(TextEncoding encoding, std::string_view bytes);

/// As UTF-8, from an encoding with an IANA name; none when the name is unknown.
std::optional<std::string> DecodeText(const std::string& name, std::string_view bytes);

/// The character that a byte stands for in Windows-1252; bytes that stand for none are control characters.
std::uint32_t FromWindows1252(unsigned char byte) noexcept;

}  // namespace quorbel
