#include <random>

#include "platform/Text.h"
#include "platform/UrlPath.h"

namespace quorbel {
namespace {

std::optional<std::wstring> Accepted(std::string_view encoded) {
    const auto parsed = CUrlPath::Parse(encoded);
    const auto* path = std::get_if<CUrlPath>(&parsed);
    return path ? std::optional(path->Text()) : std::nullopt;
}

std::optional<CUrlPath::Refusal> Refused(std::string_view encoded) {
    const auto parsed = CUrlPath::Parse(encoded);
    const auto* refusal = std::get_if<CUrlPath::Refusal>(&parsed);
    return refusal ? std::optional(*refusal) : std::nullopt;
}

/// What every parsed path promises to whoever appends it to a folder.
void ExpectHarmless(const CUrlPath& path) {
    const std::wstring& text = path.Text();
    ASSERT_TRUE(text == L"*" || text.starts_with(L'/'));
    EXPECT_EQ(text.find(L'\\'), text.npos);
    for (wchar_t character : text) EXPECT_FALSE(character < 0x20 || (character >= 0x7F && character <= 0x9F));
    EXPECT_TRUE(StaysWithin(L"/folder", L"/folder" + text));
    EXPECT_TRUE(FromUtf8Strict(ToUtf8(text)) == text);
}

TEST(UrlPath, DecodesOnceAndResolvesWhatStaysInside) {
    const std::pair<std::string_view, std::wstring_view> cases[] = {
        {"", L"/"},
        {"/", L"/"},
        {"*", L"*"},
        {"/*", L"/*"},
        {"/a", L"/a"},
        {"/a/", L"/a/"},
        {"//", L"//"},
        {"/a//b", L"/a//b"},
        // Dot segments, plain and encoded.
        {"/.", L"/"},
        {"/./", L"/"},
        {"/a/.", L"/a/"},
        {"/a/./b", L"/a/b"},
        {"/a/..", L"/"},
        {"/a/../", L"/"},
        {"/a/x/../b", L"/a/b"},
        {"/a/b/../../c", L"/c"},
        {"/a/b/..", L"/a/"},
        {"/a//../b", L"/a/b"},
        {"//..", L"/"},
        {"/a/%2e", L"/a/"},
        {"/a/%2E%2e/b", L"/b"},
        {"/a/.%2e/b", L"/b"},
        {"/a/%2e./b", L"/b"},
        // Dots that are no dot segment.
        {"/...", L"/..."},
        {"/a/.../b", L"/a/.../b"},
        {"/..a/a..", L"/..a/a.."},
        {"/.a", L"/.a"},
        {"/%20../..%20", L"/ ../.. "},
        // Every way to write a separator.
        {"/a%2fb", L"/a/b"},
        {"/a%2Fb", L"/a/b"},
        {"/a%5cb", L"/a/b"},
        {"/a%5Cb", L"/a/b"},
        {"/a\\b", L"/a/b"},
        {"\\a", L"/a"},
        {"%2fa", L"/a"},
        {"%5ca", L"/a"},
        {"/a/x%2f..%5Cb", L"/a/b"},
        {"/a\\..\\b", L"/b"},
        // Encoded twice is decoded once.
        {"/%252e%252e/a", L"/%2e%2e/a"},
        {"/a%252fb", L"/a%2fb"},
        {"/%2500", L"/%00"},
        {"/100%25", L"/100%"},
        // What has a meaning elsewhere is plain text here.
        {"/a+b", L"/a+b"},
        {"/a;b=c,d", L"/a;b=c,d"},
        {"/%3f%23", L"/?#"},
        {"/C:/a", L"/C:/a"},
        {"/%7e~", L"/~~"},
        // Every Unicode plane, raw and encoded, from its first to its last character.
        {"/\xC3\xA4", L"/\u00e4"},
        {"/%c3%A4", L"/\u00e4"},
        {"/%C2%A0", L"/\u00a0"},
        {"/%E2%82%AC", L"/\u20ac"},
        {"/%ED%9F%BF", L"/\ud7ff"},
        {"/%EE%80%80", L"/\ue000"},
        {"/%EF%BF%BF", L"/\uffff"},
        {"/%F0%90%80%80", L"/\U00010000"},
        {"/%F0%9F%98%80", L"/\U0001F600"},
        {"/%F4%8F%BF%BF", L"/\U0010FFFF"},
    };
    for (const auto& [encoded, text] : cases) EXPECT_EQ(Accepted(encoded), text) << encoded;
}

TEST(UrlPath, RefusesWhatClimbsOutOrIsNoText) {
    const std::string_view cases[] = {
        // Above the root.
        "/..", "/../", "/../a", "/a/../..", "/a/../../b", "/./..", "/%2e%2e", "/.%2E/etc/passwd",
        "/%2e%2e%2fetc", "/..%5cetc", "/..\\etc", "\\..\\etc", "/a%2f..%2f..%2fetc", "/a/b/../../../a/b",
        // Without a root.
        "a", "..", ".", "a/b", "**", "*/", "%2A", "http://host/a", "?",
        // NUL and the other control characters.
        "/%00", "/a%00.txt", "/%01", "/a%0d%0aSet-Cookie:x", "/%09", "/%1f", "/%7f", "/\t", "/\x7F",
        "/%C2%80", "/%C2%85", "/%C2%9F",
        // Bad percent signs.
        "/%", "/%2", "/%zz", "/%2g", "/%g2", "/% 2", "/%%", "/%+2", "/%-1", "/%u002e",
        // Bytes that are no UTF-8: alone, cut short, overlong, surrogates, above the last character.
        "/%80", "/%ff", "/\xFE", "/%c3", "/%c3/", "/%e2%82", "/%f0%9f%98", "/%c0%ae%c0%ae/", "/%c0%af",
        "/%c1%9c", "/%e0%80%af", "/%e0%9f%bf", "/%f0%80%80%af", "/%f0%8f%bf%bf", "/%ed%a0%80", "/%ed%bf%bf",
        "/%ed%a0%bd%ed%b8%80", "/%f4%90%80%80", "/%f5%80%80%80", "/%f8%88%80%80%80"};
    for (const auto encoded : cases) EXPECT_EQ(Refused(encoded), CUrlPath::Refusal::Malformed) << encoded;
    EXPECT_EQ(Refused(std::string_view("/a\0b", 4)), CUrlPath::Refusal::Malformed);
}

TEST(UrlPath, MeasuresTheLengthAsItWasSent) {
    EXPECT_EQ(Accepted("/" + std::string(CUrlPath::kMaximumLength - 1, 'a')),
              L"/" + std::wstring(CUrlPath::kMaximumLength - 1, L'a'));
    EXPECT_EQ(Refused("/" + std::string(CUrlPath::kMaximumLength, 'a')), CUrlPath::Refusal::TooLong);
    EXPECT_EQ(Refused("/" + std::string(9'999, '.')), CUrlPath::Refusal::TooLong);
    std::string shortOnceDecoded = "/";
    while (shortOnceDecoded.size() <= CUrlPath::kMaximumLength) shortOnceDecoded += "%41";
    EXPECT_EQ(Refused(shortOnceDecoded), CUrlPath::Refusal::TooLong);

    std::string deep;
    for (int i = 0; i < 1'000; ++i) deep += "/a";
    for (int i = 0; i < 1'000; ++i) deep += "/..";
    EXPECT_EQ(Accepted(deep), L"/");
    EXPECT_EQ(Refused(deep + "/.."), CUrlPath::Refusal::Malformed);
}

TEST(UrlPath, EncodesWhatAUriMayNotHold) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"", "/"},
        {"*", "*"},
        {"/*", "/%2A"},
        {"/%7e-._aZ09", "/~-._aZ09"},
        {"/100%25", "/100%25"},
        {"/%252e", "/%252e"},
        {"/a b|{}\"^[]?#", "/a%20b%7C%7B%7D%22%5E%5B%5D%3F%23"},
        {"/a+b", "/a%2Bb"},
        {"/%c3%a4", "/%C3%A4"},
        {"/\xF0\x9F\x98\x80", "/%F0%9F%98%80"},
    };
    for (const auto& [given, encoded] : cases) {
        const auto parsed = CUrlPath::Parse(given);
        ASSERT_TRUE(std::holds_alternative<CUrlPath>(parsed)) << given;
        EXPECT_EQ(std::get<CUrlPath>(parsed).Encoded(), encoded);
    }
}

TEST(UrlPath, GivesTheSamePathAgainFromItsEncodedForm) {
    constexpr std::string_view kPieces[] = {"/",         "/",         "\\",
                                            "%2f",       "%5C",       ".",
                                            "..",        "%2e",       "a",
                                            "Z9",        "%25",       "%2",
                                            "%00",       "%1F",       "%7f",
                                            "+",         " ",         "%20",
                                            "?",         "#",         ";",
                                            ":",         "*",         "~",
                                            "|",         "\"",        "%",
                                            "%C3%A4",    "\xC3",      "\xA4",
                                            "\xFF",      "%E2%82%AC", "%F0%9F%98%80",
                                            "%ED%A0%80", "%C0%AE",    "%C2%85",
                                            "-"};
    std::mt19937 random(20'240'607);
    int accepted = 0;
    for (int i = 0; i < 50'000; ++i) {
        std::string encoded = "/";
        for (auto left = random() % 12; left > 0; --left) encoded += kPieces[random() % std::size(kPieces)];
        const auto parsed = CUrlPath::Parse(encoded);
        const auto* path = std::get_if<CUrlPath>(&parsed);
        if (!path) continue;
        ++accepted;
        ExpectHarmless(*path);
        const std::string canonical = path->Encoded();
        ASSERT_EQ(Accepted(canonical), path->Text()) << encoded;
        ASSERT_EQ(std::get<CUrlPath>(CUrlPath::Parse(canonical)).Encoded(), canonical) << encoded;
    }
    EXPECT_GT(accepted, 5'000);
}

TEST(UrlPath, GivesEveryCharacterBackOrRefusesIt) {
    for (std::uint32_t point = 0; point <= 0x10FFFF; ++point) {
        const bool isSurrogate = point >= 0xD800 && point <= 0xDFFF;
        if (isSurrogate || point == '%' || point == '\\' || point == '/' || point == '.') continue;
        const std::wstring text{L'/', static_cast<wchar_t>(point)};
        const bool isControl = point < 0x20 || (point >= 0x7F && point <= 0x9F);
        const auto accepted = Accepted(ToUtf8(text));
        ASSERT_EQ(accepted.has_value(), !isControl) << point;
        ASSERT_EQ(accepted.value_or(text), text) << point;
    }
}

TEST(UrlPath, DecodesPercentSignsIntoAnyByte) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string hex = ToUtf8(ToHex(static_cast<std::uint64_t>(byte), 2));
        EXPECT_EQ(PercentDecode("a%" + hex + "b"), "a" + std::string(1, static_cast<char>(byte)) + "b");
    }
    EXPECT_EQ(PercentDecode(""), "");
    EXPECT_EQ(PercentDecode("%2525"), "%25");
    EXPECT_EQ(PercentDecode("a+b"), "a+b");
    for (const char* bad : {"%", "%1", "a%", "%1%31", "%x0", "%0x", "%\xC3\xA4"}) {
        EXPECT_EQ(PercentDecode(bad), std::nullopt) << bad;
    }
}

TEST(UrlPath, KnowsWhatStaysWithinAFolder) {
    using namespace std::literals;
    const std::tuple<std::wstring_view, std::wstring_view, bool> cases[] = {
        {L"0/docs", L"0/docs", true},
        {L"0/docs", L"0/docs/a", true},
        {L"0/docs", L"0/docs/", true},
        {L"0/docs", L"0/docsx", true},
        {L"0/docs", L"0/docs/...", true},
        {L"0/docs", L"0/docs/..a/a..", true},
        {L"0/docs", L"0/Docs/a", false},
        {L"0/docs", L"0/doc", false},
        {L"0/docs", L"", false},
        {L"0/docs", L"0\\docs\\a", false},
        {L"0/docs", L"0/docs/..", false},
        {L"0/docs", L"0/docs/../docs/a", false},
        {L"0/docs", L"0/docs/a/../b", false},
        {L"0/docs", L"0/docs/.", false},
        {L"0/docs", L"0/docs\\..\\a", false},
        {L"0/docs", L"0/docs/a\\.", false},
        {L"0/docs", L"0/docs/a\0b"sv, false},
        {L"0/docs", L"0/docs\0"sv, false},
        {L"", L"", true},
        {L"", L"name", true},
        {L"", L".", false},
        {L"", L"..", false},
        {L"", L"a/..", false},
        // What the administrator wrote into the folder stands.
        {L"0/../srv", L"0/../srv/a", true},
        {L"0/srv/..", L"0/srv/../a", true},
        {L"0/srv/.", L"0/srv/./a", true},
        {L"0/srv/..", L"0/srv/..", true},
        {L"0/srv/../", L"0/srv/../..", false},
        // A dot segment that begins in the folder and ends behind it.
        {L"0/srv/.", L"0/srv/../a", false},
        {L"0/srv/.", L"0/srv/..", false},
        {L"0/srv/", L"0/srv/..", false},
        {L"0/srv/", L"0/srv/./a", false},
        {L"0/srv/.", L"0/srv/.../a", true},
        {L"0/srv/.", L"0/srv/.a", true},
        {L"0/srv/..", L"0/srv/...", true},
    };
    for (const auto& [folder, path, stays] : cases) {
        EXPECT_EQ(StaysWithin(folder, path), stays) << ToUtf8(folder) << " and " << ToUtf8(path);
    }
}

}  // namespace
}  // namespace quorbel
