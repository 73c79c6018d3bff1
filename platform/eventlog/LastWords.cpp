#include <chrono>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include "platform/Error.h"
#include "platform/eventlog/EventJson.h"

namespace quorbel {

namespace {

/// As TimeText, which the C library locks for.
void AppendTime(CLastWordsText& line) noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::chrono::sys_seconds time{std::chrono::seconds(now.tv_sec)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    line.AppendDecimal(static_cast<std::uint64_t>(static_cast<int>(date.year())), 4).Append('-');
    line.AppendDecimal(static_cast<unsigned>(date.month()), 2).Append('-');
    line.AppendDecimal(static_cast<unsigned>(date.day()), 2).Append('T');
    line.AppendDecimal(static_cast<std::uint64_t>(clock.hours().count()), 2).Append(':');
    line.AppendDecimal(static_cast<std::uint64_t>(clock.minutes().count()), 2).Append(':');
    line.AppendDecimal(static_cast<std::uint64_t>(clock.seconds().count()), 2).Append('.');
    line.AppendDecimal(static_cast<std::uint64_t>(now.tv_nsec) / 100, 7).Append('Z');
}

void AppendEscaped(CLastWordsText& line, std::string_view text) noexcept {
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            line.Append('\\').Append(character);
        } else if (code < 0x20 || code >= 0x7F) {
            line.Append("\\u").AppendHex(code, 4);
        } else {
            line.Append(character);
        }
    }
}

}  // namespace

CLastWordsText ToJsonLine(const CLastWords& words) noexcept {
    // Twice that always fits: an escaped character takes six.
    constexpr std::size_t kLongest = 1100;
    const auto string = words.string.substr(0, kLongest);
    CLastWordsText line;
    line.Append(R"({"time":")");
    AppendTime(line);
    line.Append(R"(","id":"0x)").AppendHex(words.id, 8).Append(R"(","severity":")");
    line.Append(SeverityName(EventSeverity::Error)).Append(R"(","strings":[")");
    AppendEscaped(line, string);
    line.Append(R"("],"source":"","line":0,"user":"","text":")");
    AppendEscaped(line, words.introduction.substr(0, 200));
    AppendEscaped(line, string);
    line.Append("\"}\n");
    return line;
}

void ShowLastWords(const CLastWords& words) noexcept {
    CFixedText<2048> text;
    text.Append(words.introduction).Append(words.string).TrimEnd();
    text.Append('\n');
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0)
        Ignore(::write(STDERR_FILENO, text.View().data(), text.View().size()));
}

}  // namespace quorbel
