#include "components/display/activity/ActivityRow.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <optional>

#include "LibService/trace/TraceArguments.h"
#include "platform/Clock.h"
#include "platform/Text.h"
#include "platform/VisibleText.h"

namespace quorbel {

namespace {

std::string Hex(std::uint64_t number, int width) {
    return "0x" + ToUtf8(ToHex(number, width));
}

std::string LocalTime(std::uint64_t time, const char* format) {
    const auto seconds = static_cast<std::time_t>(ToUnixTime(time).seconds);
    std::tm local{};
    if (!::localtime_r(&seconds, &local)) return "?";
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
}

/// The first `digits` of the seven that follow the second.
std::string Fraction(std::uint64_t time, std::size_t digits) {
    const std::string all = std::to_string(10'000'000 + ToUnixTime(time).fraction);
    return all.substr(1, digits);
}

/// Each byte is a character.
std::wstring FromLatin1(const std::string& bytes) {
    std::wstring text;
    for (const char byte : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(byte));
    return text;
}

/// What a value is, and the value.
std::string Describe(const TraceValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    if (const auto* number = std::get_if<std::uint64_t>(&value))
        return std::to_string(*number) + " (" + Hex(*number, 1) + ")";
    if (const auto* number = std::get_if<double>(&value)) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%.17g", *number);
        return text.data();
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        const auto utf8 = FromUtf8Strict(*text);
        return '"' + ToVisibleUtf8(utf8 ? *utf8 : FromLatin1(*text)) + '"';
    }
    if (const auto* text = std::get_if<std::u16string>(&value))
        return '"' + ToVisibleUtf8(FromUtf16(*text)) + '"';
    return "(none)";
}

std::string WithoutText(std::uint32_t id, const std::vector<TraceValue>& values) {
    std::string text = Hex(id, 8);
    for (const TraceValue& value : values) text += ' ' + Describe(value);
    return text;
}

std::string_view WithoutLineEnd(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \r\n");
    return text.substr(0, last == text.npos ? 0 : last + 1);
}

}  // namespace

ActivitySeverity SeverityOf(std::uint32_t id) noexcept {
    return static_cast<ActivitySeverity>(id >> 30);
}

const char* NameOf(ActivitySeverity severity) noexcept {
    switch (severity) {
        case ActivitySeverity::Success: return "Success";
        case ActivitySeverity::Informational: return "Information";
        case ActivitySeverity::Warning: return "Warning";
        case ActivitySeverity::Error: return "Error";
    }
    return "";
}

std::size_t CActivityRow::Bytes() const noexcept {
    return sizeof(*this) + object.capacity() + text.capacity() + arguments.capacity();
}

CActivityRow MakeRow(CServiceRecord record, std::string_view object, const CTraceTexts& texts) {
    const std::vector<TraceValue> values =
        DecodeArguments(record.arguments).value_or(std::vector<TraceValue>());
    const std::string text =
        ToVisibleUtf8(FromUtf8(WithoutLineEnd(ToUtf8(texts.Find(record.id).Render(values)))));
    return {record.number,
            record.time,
            record.id,
            record.object,
            ToVisibleUtf8(FromUtf8(object)),
            text.empty() ? WithoutText(record.id, values) : text,
            std::move(record.arguments)};
}

std::string TimeOfDay(std::uint64_t time) {
    return LocalTime(time, "%H:%M:%S.") + Fraction(time, 3);
}

std::string Details(const CActivityRow& row) {
    std::string lines = row.text + "\n\n";
    lines += "Number      " + std::to_string(row.number) + '\n';
    lines += "Time        " + LocalTime(row.time, "%Y-%m-%d %H:%M:%S.") + Fraction(row.time, 7) +
             LocalTime(row.time, " %z") + '\n';
    lines += std::string("Severity    ") + NameOf(row.Severity()) + '\n';
    lines += "Object      " + (row.object.empty() ? "not known" : row.object) + "  (key " +
             Hex(row.objectKey, 1) + ")\n";
    lines += "Identifier  " + Hex(row.id, 8) + '\n';
    const auto values = DecodeArguments(row.arguments);
    if (!values) return lines + "Arguments   cannot be read\n";
    for (std::size_t i = 0; i < values->size(); ++i)
        lines += "Argument " + std::to_string(i + 1) + "  " + Describe((*values)[i]) + '\n';
    return lines;
}

}  // namespace quorbel
