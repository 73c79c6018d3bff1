#include "platform/eventlog/EventJson.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <time.h>

#include "platform/Clock.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array kSeverities{EventSeverity::Success, EventSeverity::Informational, EventSeverity::Warning,
                                 EventSeverity::Error};

/// Reads `count` decimal digits and then `end`, and moves `text` past both.
std::optional<int> TakeField(std::string_view& text, std::size_t count, char end) {
    if (text.size() <= count || text[count] != end) return std::nullopt;
    int number = 0;
    for (char digit : text.substr(0, count)) {
        if (digit < '0' || digit > '9') return std::nullopt;
        number = number * 10 + (digit - '0');
    }
    text.remove_prefix(count + 1);
    return number;
}

std::optional<std::uint64_t> ParseTime(const std::string& whole) {
    std::string_view text = whole;
    constexpr std::array<std::pair<std::size_t, char>, 7> kFields{
        {{4, '-'}, {2, '-'}, {2, 'T'}, {2, ':'}, {2, ':'}, {2, '.'}, {7, 'Z'}}};
    std::array<int, 7> fields{};
    for (std::size_t i = 0; i < kFields.size(); ++i) {
        const auto field = TakeField(text, kFields[i].first, kFields[i].second);
        if (!field) return std::nullopt;
        fields[i] = *field;
    }
    if (!text.empty()) return std::nullopt;
    tm parts{};
    parts.tm_year = fields[0] - 1900, parts.tm_mon = fields[1] - 1, parts.tm_mday = fields[2];
    parts.tm_hour = fields[3], parts.tm_min = fields[4], parts.tm_sec = fields[5];
    const std::uint64_t time = ToFileTime(CUnixTime{::timegm(&parts), static_cast<std::uint32_t>(fields[6])});
    // A thirteenth month would have become the next year's first, and a time before 1601 one far ahead.
    if (TimeText(time) != whole) return std::nullopt;
    return time;
}

std::optional<std::uint32_t> ParseId(std::string_view text) {
    if (text.size() != 10 || !text.starts_with("0x")) return std::nullopt;
    const auto id = ParseHex(FromUtf8(text.substr(2)), 8);
    if (!id) return std::nullopt;
    return static_cast<std::uint32_t>(*id);
}

std::optional<EventSeverity> ParseSeverity(std::string_view text) {
    for (EventSeverity severity : kSeverities) {
        if (text == SeverityName(severity)) return severity;
    }
    return std::nullopt;
}

/// A text member; null when it is missing or no text.
const std::string* TextMember(const Json& object, const char* name) {
    const auto found = object.find(name);
    return found == object.end() ? nullptr : found->get_ptr<const std::string*>();
}

/// Optional texts: none when the member is there but of another type.
bool ReadText(const Json& object, const char* name, std::string& text) {
    if (!object.contains(name)) return true;
    const std::string* member = TextMember(object, name);
    if (member) text = *member;
    return member != nullptr;
}

bool ReadStrings(const Json& object, std::vector<std::wstring>& strings) {
    const auto found = object.find("strings");
    if (found == object.end() || !found->is_array()) return false;
    for (const Json& element : *found) {
        const auto* text = element.get_ptr<const std::string*>();
        if (!text) return false;
        strings.push_back(FromUtf8(*text));
    }
    return true;
}

bool ReadLine(const Json& object, std::uint32_t& line) {
    const auto found = object.find("line");
    if (found == object.end()) return true;
    const auto* number = found->get_ptr<const Json::number_unsigned_t*>();
    if (!number || *number > std::numeric_limits<std::uint32_t>::max()) return false;
    line = static_cast<std::uint32_t>(*number);
    return true;
}

std::optional<CEventEntry> FromJson(const Json& object) {
    if (!object.is_object()) return std::nullopt;
    const std::string* time = TextMember(object, "time");
    const std::string* id = TextMember(object, "id");
    const std::string* severity = TextMember(object, "severity");
    if (!time || !id || !severity) return std::nullopt;
    const auto parsedTime = ParseTime(*time);
    const auto parsedId = ParseId(*id);
    const auto parsedSeverity = ParseSeverity(*severity);
    if (!parsedTime || !parsedId || !parsedSeverity) return std::nullopt;

    CEventEntry entry{.time = *parsedTime,
                      .id = *parsedId,
                      .severity = *parsedSeverity,
                      .strings = {},
                      .source = {},
                      .line = 0,
                      .user = {},
                      .text = {}};
    std::string text;
    if (!ReadStrings(object, entry.strings) || !ReadText(object, "source", entry.source) ||
        !ReadLine(object, entry.line) || !ReadText(object, "user", entry.user) ||
        !ReadText(object, "text", text))
        return std::nullopt;
    entry.text = FromUtf8(text);
    return entry;
}

}  // namespace

std::string TimeText(std::uint64_t time) {
    const CUnixTime unixTime = ToUnixTime(time);
    const auto seconds = static_cast<time_t>(unixTime.seconds);
    tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 96> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%07uZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  unixTime.fraction);
    return buffer.data();
}

std::string IdText(std::uint32_t id) {
    return "0x" + ToUtf8(ToHex(id, 8));
}

const char* SeverityName(EventSeverity severity) noexcept {
    switch (severity) {
        case EventSeverity::Success: return "success";
        case EventSeverity::Informational: return "informational";
        case EventSeverity::Warning: return "warning";
        case EventSeverity::Error: return "error";
    }
    return "error";
}

std::string ToJsonLine(const CEventEntry& entry) {
    Json object;
    object["time"] = TimeText(entry.time);
    object["id"] = IdText(entry.id);
    object["severity"] = SeverityName(entry.severity);
    object["strings"] = Json::array();
    for (const std::wstring& text : entry.strings) object["strings"].push_back(ToUtf8(text));
    object["source"] = entry.source;
    object["line"] = entry.line;
    object["user"] = entry.user;
    object["text"] = ToUtf8(entry.text);
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<CEventEntry> FromJsonLine(std::string_view line) {
    return FromJson(Json::parse(line, nullptr, false));
}

}  // namespace quorbel
