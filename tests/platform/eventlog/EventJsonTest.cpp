#include "platform/eventlog/EventJson.h"

namespace quorbel {
namespace {

CEventEntry Sample() {
    CEventEntry entry;
    entry.time = 133'801'632'001'234'567;
    entry.id = 0xC00000C9;
    entry.severity = EventSeverity::Error;
    entry.strings = {L"/srv/docs", L"", L"\u00e4\"\\\n\x1F600"};
    entry.source = "HTTPServer.cpp";
    entry.line = 4294967295;
    entry.user = "root";
    entry.text = L"The folder";
    return entry;
}

TEST(EventJson, WritesTheFieldsThatScriptsRead) {
    EXPECT_EQ(ToJsonLine(Sample()),
              R"({"time":"2025-01-01T00:00:00.1234567Z","id":"0xC00000C9","severity":"error",)"
              "\"strings\":[\"/srv/docs\",\"\",\"\u00e4\\\"\\\\\\n\U0001F600\"],"
              R"("source":"HTTPServer.cpp","line":4294967295,"user":"root","text":"The folder"})");
}

TEST(EventJson, GivesBackWhatItWrote) {
    for (std::uint32_t severity = 0; severity < 4; ++severity) {
        CEventEntry entry = Sample();
        entry.severity = static_cast<EventSeverity>(severity);
        const auto read = FromJsonLine(ToJsonLine(entry));
        ASSERT_TRUE(read.has_value());
        EXPECT_EQ(ToJsonLine(*read), ToJsonLine(entry));
        EXPECT_EQ(read->time, entry.time);
        EXPECT_EQ(read->strings, entry.strings);
        EXPECT_EQ(read->severity, entry.severity);
    }
}

TEST(EventJson, ReplacesInvalidTextInsteadOfFailing) {
    CEventEntry entry = Sample();
    entry.strings = {std::wstring{static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x7FFFFFFF)}};
    entry.source = "\xFF.cpp";
    entry.user = "\xC3";
    const auto read = FromJsonLine(ToJsonLine(entry));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->strings, (std::vector<std::wstring>{L"\xFFFD\xFFFD"}));
    EXPECT_EQ(read->source, "\uFFFD.cpp");
    EXPECT_EQ(read->user, "\uFFFD");
}

TEST(EventJson, ReadsNothingFromADamagedLine) {
    const std::string good = ToJsonLine(Sample());
    ASSERT_TRUE(FromJsonLine(good).has_value());
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(FromJsonLine(good.substr(0, length)).has_value()) << length;

    const std::pair<const char*, const char*> damages[] = {
        {"2025-01-01T", "2025-01-01 "},
        {"4567Z", "456Z"},
        {"4567Z", "4567+"},
        {"2025-", "1500-"},
        {"2025-01", "2025-13"},
        {"0xC00000C9", "C00000C9"},
        {"0xC00000C9", "0xC00000CG"},
        {"\"error\"", "\"fatal\""},
        {"\"error\"", "3"},
        {"[", "{"},
        {"\"/srv/docs\"", "17"},
        {"4294967295", "4294967296"},
        {"4294967295", "-1"},
        {"\"root\"", "null"},
        {"\"time\"", "\"when\""},
    };
    for (const auto& [from, to] : damages) {
        std::string damaged = good;
        damaged.replace(damaged.find(from), std::string_view(from).size(), to);
        EXPECT_FALSE(FromJsonLine(damaged).has_value()) << damaged;
    }
    EXPECT_FALSE(FromJsonLine(std::string(100'000, '[')).has_value());
    EXPECT_FALSE(FromJsonLine("[]").has_value());
}

}  // namespace
}  // namespace quorbel
