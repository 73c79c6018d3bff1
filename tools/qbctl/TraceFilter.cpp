#include "tools/qbctl/TraceFilter.h"

#include <ctime>

#include "platform/Clock.h"
#include "platform/eventlog/EventJson.h"

namespace quorbel {

namespace {

std::optional<std::uint32_t> ParseSeverity(std::wstring_view text) {
    for (std::uint32_t severity = 0; severity < 4; ++severity) {
        if (EqualNoCase(text, FromUtf8(SeverityName(static_cast<EventSeverity>(severity))))) return severity;
    }
    return std::nullopt;
}

std::optional<std::uint32_t> ParseIdentifier(std::wstring_view text) {
    if (text.starts_with(L"0x") || text.starts_with(L"0X")) text.remove_prefix(2);
    const auto id = ParseHex(text, 8);
    if (!id) return std::nullopt;
    return static_cast<std::uint32_t>(*id);
}

/// A local time, "2026-01-31 12:00:00", its time of day or the seconds left out as one likes; with "Z" behind
/// it UTC.
std::optional<std::uint64_t> ParseTime(const std::wstring& text) {
    std::string bytes = ToUtf8(text);
    const bool isUtc = bytes.ends_with('Z');
    if (isUtc) bytes.pop_back();
    for (const char* format :
         {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
        std::tm parts{};
        parts.tm_isdst = -1;
        const char* const end = ::strptime(bytes.c_str(), format, &parts);
        if (end == nullptr || *end != '\0') continue;
        const std::time_t seconds = isUtc ? ::timegm(&parts) : std::mktime(&parts);
        return ToFileTime(CUnixTime{seconds, 0});
    }
    return std::nullopt;
}

}  // namespace

std::vector<COption> CTraceFilter::Options() {
    return {{L"--object", OptionKind::Values},
            {L"--id", OptionKind::Values},
            {L"--severity", OptionKind::Value},
            {L"--from", OptionKind::Value},
            {L"--to", OptionKind::Value}};
}

std::variant<CTraceFilter, std::wstring> CTraceFilter::FromArguments(const CArguments& arguments) {
    CTraceFilter filter;
    for (const std::wstring& object : arguments.Values(L"--object")) filter.m_objects.insert(ToUtf8(object));
    for (const std::wstring& text : arguments.Values(L"--id")) {
        const auto id = ParseIdentifier(text);
        if (!id) return L"No identifier (up to eight hexadecimal digits): " + text;
        filter.m_identifiers.insert(*id);
    }
    if (const std::wstring* text = arguments.Value(L"--severity")) {
        const auto severity = ParseSeverity(*text);
        if (!severity) return L"No severity (success, informational, warning, error): " + *text;
        filter.m_leastSeverity = *severity;
    }
    for (auto [option, time] : {std::pair(L"--from", &filter.m_from), {L"--to", &filter.m_to}}) {
        const std::wstring* const text = arguments.Value(option);
        if (text == nullptr) continue;
        *time = ParseTime(*text);
        if (!*time) return L"No time (such as 2026-01-31 12:00:00): " + *text;
    }
    return filter;
}

bool CTraceFilter::Passes(const CTraceFileRecord& record) const {
    return (m_objects.empty() || m_objects.contains(record.object)) &&
           (m_identifiers.empty() || m_identifiers.contains(record.id)) &&
           record.id >> 30 >= m_leastSeverity && (!m_from || record.time >= *m_from) &&
           (!m_to || record.time < *m_to);
}

}  // namespace quorbel
