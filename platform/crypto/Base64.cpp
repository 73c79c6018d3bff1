#include "platform/crypto/Base64.h"

#include <cstdint>

namespace quorbel {

namespace {

constexpr std::string_view kStandard = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kUrlSafe = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

/// The digits alone, without padding.
std::string Encode(std::string_view bytes, std::string_view alphabet) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::uint32_t bits = 0;
    int count = 0;  // of bits not written yet
    for (char byte : bytes) {
        bits = bits << 8 | static_cast<unsigned char>(byte);
        for (count += 8; count >= 6; count -= 6) text.push_back(alphabet[bits >> (count - 6) & 63]);
    }
    if (count > 0) text.push_back(alphabet[bits << (6 - count) & 63]);
    return text;
}

std::optional<std::string> Decode(std::string_view text, std::string_view alphabet) {
    if (text.size() % 4 == 1) return std::nullopt;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t bits = 0;
    int count = 0;
    for (char character : text) {
        const auto digit = alphabet.find(character);
        if (digit == alphabet.npos) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<char>(bits >> count & 0xFF));
    }
    if ((bits & ((1u << count) - 1)) != 0) return std::nullopt;
    return bytes;
}

}  // namespace

std::string ToBase64(std::string_view bytes) {
    std::string text = Encode(bytes, kStandard);
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

std::optional<std::string> FromBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    if (text.ends_with("==")) {
        text.remove_suffix(2);
    } else if (text.ends_with('=')) {
        text.remove_suffix(1);
    }
    return Decode(text, kStandard);
}

std::string ToBase64Url(std::string_view bytes) {
    return Encode(bytes, kUrlSafe);
}

std::optional<std::string> FromBase64Url(std::string_view text) {
    return Decode(text, kUrlSafe);
}

}  // namespace quorbel
