#include "components/oledb/ValueText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace quorbel {

namespace {

using Type = CSqlColumn::Type;

// 2^63, the first number beyond what 64 bits with a sign hold.
constexpr double kBeyondWhole = 9223372036854775808.0;

bool IsInRange(Type type, std::int64_t number) noexcept {
    if (type == Type::I2) return number >= INT16_MIN && number <= INT16_MAX;
    if (type == Type::I4) return number >= INT32_MIN && number <= INT32_MAX;
    return true;
}

CSqlValue FitToWhole(Type type, const CSqlValue& value) noexcept {
    std::int64_t number = 0;
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
        number = *whole;
    } else if (const auto* const truth = std::get_if<bool>(&value)) {
        number = *truth ? 1 : 0;
    } else if (const auto* const real = std::get_if<double>(&value)) {
        if (std::trunc(*real) != *real || *real < -kBeyondWhole || *real >= kBeyondWhole) return {};
        number = static_cast<std::int64_t>(*real);
    } else if (const auto* const decimal = std::get_if<CSqlDecimal>(&value)) {
        const char* const end = decimal->digits.data() + decimal->digits.size();
        const auto [stop, error] = std::from_chars(decimal->digits.data(), end, number);
        if (error != std::errc() || stop != end) return {};
    } else {
        return {};
    }
    return IsInRange(type, number) ? CSqlValue(number) : CSqlValue();
}

CSqlValue FitToReal(Type type, const CSqlValue& value) noexcept {
    double number = 0;
    if (const auto* const real = std::get_if<double>(&value)) {
        number = *real;
    } else if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
        number = static_cast<double>(*whole);
    } else {
        return {};
    }
    const bool isTooLarge = type == Type::R4 && std::isfinite(number) &&
                            std::fabs(number) > double{std::numeric_limits<float>::max()};
    return isTooLarge || std::isnan(number) ? CSqlValue() : CSqlValue(number);
}

CSqlValue FitToNumeric(const CSqlValue& value) noexcept {
    const auto* const real = std::get_if<double>(&value);
    const bool isNumber = std::holds_alternative<std::int64_t>(value) ||
                          std::holds_alternative<CSqlDecimal>(value) || (real && !std::isnan(*real));
    return isNumber ? value : CSqlValue();
}

CSqlValue FitToBool(const CSqlValue& value) noexcept {
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) return *whole != 0;
    return std::holds_alternative<bool>(value) ? value : CSqlValue();
}

std::string_view Written(const CNumberText& buffer, std::to_chars_result result) noexcept {
    return {buffer.data(), static_cast<std::size_t>(result.ptr - buffer.data())};
}

/// With so many digits; where rounding would make infinity of a number, it is rounded towards zero.
template <class Number>
std::string_view Rounded(Number value, int digits, CNumberText& buffer) noexcept {
    char* const begin = buffer.data();
    char* const end = begin + buffer.size();
    auto result = std::to_chars(begin, end, value, std::chars_format::scientific, digits - 1);
    Number back = 0;
    if (std::from_chars(begin, result.ptr, back).ec == std::errc::result_out_of_range &&
        std::fabs(value) > 1) {
        const Number unit = std::pow(Number(10), Number(1 - digits));
        result = std::to_chars(begin, end, value * (1 - unit), std::chars_format::scientific, digits - 1);
    }
    return Written(buffer, result);
}

template <class Number>
std::string_view RealText(Type type, Number value, std::size_t width, CNumberText& buffer) noexcept {
    if (std::isinf(value)) return value < 0 ? "-1e999" : "1e999";
    char* const begin = buffer.data();
    char* const end = begin + buffer.size();
    const Number size = std::fabs(value);
    const bool isPlain = type == Type::Numeric ? size == 0 || (size > Number(1e-20) && size < Number(1e20))
                                               : size == 0 || (size >= Number(1e-5) && size < Number(1e15));
    if (isPlain) {
        const auto text = Written(buffer, std::to_chars(begin, end, value, std::chars_format::fixed));
        if (text.size() <= width) return text;
    }
    auto text = Written(buffer, std::to_chars(begin, end, value));
    for (int digits = std::numeric_limits<Number>::max_digits10 - 1; text.size() > width && digits > 0;
         --digits)
        text = Rounded(value, digits, buffer);
    return text;
}

}  // namespace

CSqlValue FitToColumn(Type type, const CSqlValue& value) noexcept {
    switch (type) {
        case Type::I2:
        case Type::I4:
        case Type::I8: return FitToWhole(type, value);
        case Type::R4:
        case Type::R8: return FitToReal(type, value);
        case Type::Numeric: return FitToNumeric(value);
        case Type::Bool: return FitToBool(value);
        case Type::Text:
        case Type::Variant: break;
    }
    const auto* const real = std::get_if<double>(&value);
    return real && std::isnan(*real) ? CSqlValue() : value;
}

std::string_view NumberText(Type type, const CSqlValue& value, std::size_t width,
                            CNumberText& buffer) noexcept {
    if (const auto* const whole = std::get_if<std::int64_t>(&value)) {
        return Written(buffer, std::to_chars(buffer.data(), buffer.data() + buffer.size(), *whole));
    }
    if (const auto* const real = std::get_if<double>(&value)) {
        return type == Type::R4 ? RealText(type, static_cast<float>(*real), width, buffer)
                                : RealText(type, *real, width, buffer);
    }
    if (const auto* const truth = std::get_if<bool>(&value)) return *truth ? "True" : "False";
    const auto* const decimal = std::get_if<CSqlDecimal>(&value);
    return decimal ? decimal->digits : std::string_view();
}

std::string HexText(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text(bytes.size() * 2, '\0');
    char* to = text.data();
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        *to++ = kDigits[value >> 4];
        *to++ = kDigits[value & 0xF];
    }
    return text;
}

}  // namespace quorbel
