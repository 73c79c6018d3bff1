#include <clocale>
#include <set>

#include "platform/Text.h"

namespace quorbel {
namespace {

constexpr wchar_t kReplacement = 0xFFFD;

TEST(Text, ConvertsEveryLengthOfSequenceBothWays) {
    using namespace std::literals;
    const std::tuple<std::wstring_view, std::string_view, std::u16string_view> cases[] = {
        {L"", "", u""},
        {L"a\0b"sv, "a\0b"sv, u"a\0b"sv},
        {L"\x7F", "\x7F", u"\x7F"},
        {L"\u0080", "\xC2\x80", u"\u0080"},
        {L"\u07FF", "\xDF\xBF", u"\u07FF"},
        {L"\u0800", "\xE0\xA0\x80", u"\u0800"},
        {L"\ud7ff", "\xED\x9F\xBF", u"\ud7ff"},
        {L"\ue000", "\xEE\x80\x80", u"\ue000"},
        {L"\uffff", "\xEF\xBF\xBF", u"\uffff"},
        {L"\U00010000", "\xF0\x90\x80\x80", u"\U00010000"},
        {L"\U0010FFFF", "\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
        {L"a\U0001F600.", "a\xF0\x9F\x98\x80.", u"a\U0001F600."},
    };
    for (const auto& [text, utf8, utf16] : cases) {
        EXPECT_EQ(ToUtf8(text), utf8);
        EXPECT_EQ(FromUtf8(utf8), text) << utf8;
        EXPECT_EQ(FromUtf8Strict(utf8), text) << utf8;
        EXPECT_EQ(ToUtf16(text), utf16) << utf8;
        EXPECT_EQ(FromUtf16(utf16), text) << utf8;
        EXPECT_EQ(FromUtf16Bytes(ToUtf16Bytes(text)), text) << utf8;
    }
}

TEST(Text, PutsOneReplacementForEachMaximalPartOfInvalidUtf8) {
    const std::pair<std::string_view, std::wstring_view> cases[] = {
        {"\x80", L"\uFFFD"},
        {"\xC0\xAE", L"\uFFFD\uFFFD"},
        {"\xC1\xBF", L"\uFFFD\uFFFD"},
        {"\xC3", L"\uFFFD"},
        {"\xC3z", L"\uFFFDz"},
        {"\xC3\xC3\xA4", L"\uFFFD\u00e4"},
        {"\xE2\x82", L"\uFFFD"},
        {"\xE2\x82z", L"\uFFFDz"},
        {"\xE0\x80\xAF", L"\uFFFD\uFFFD\uFFFD"},
        {"\xE0\x9F\xBF", L"\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x8F\xBF\xBF", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x9F\x98", L"\uFFFD"},
        {"\xF0\x9F\x98/", L"\uFFFD/"},
        {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF5", L"\uFFFD"},
        {"\xFFz\xFE", L"\uFFFDz\uFFFD"},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(FromUtf8(bytes), text);
        EXPECT_EQ(FromUtf8Strict(bytes), std::nullopt) << ToUtf8(text);
    }
}

TEST(Text, ReplacesWhatIsNoCharacterWhenWriting) {
    for (std::uint32_t value : {0xD800U, 0xDBFFU, 0xDC00U, 0xDFFFU, 0x110000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        const std::wstring text(1, static_cast<wchar_t>(value));
        EXPECT_EQ(ToUtf8(text), "\xEF\xBF\xBD") << value;
        EXPECT_EQ(ToUtf16(text), u"\uFFFD") << value;
    }
}

TEST(Text, ReplacesLoneSurrogatesWhenReadingUtf16) {
    constexpr char16_t kHigh = 0xD83D;
    constexpr char16_t kLow = 0xDE00;
    const std::pair<std::u16string, std::wstring> cases[] = {
        {{kHigh}, {kReplacement}},
        {{kLow}, {kReplacement}},
        {{kLow, kHigh}, {kReplacement, kReplacement}},
        {{kHigh, u'a'}, {kReplacement, L'a'}},
        {{kHigh, kHigh, kLow}, {kReplacement, L'\U0001F600'}},
        {{kHigh, kLow, kLow}, {L'\U0001F600', kReplacement}},
    };
    for (const auto& [units, text] : cases) EXPECT_EQ(FromUtf16(units), text);
}

TEST(Text, WritesUtf16AsLittleEndianBytes) {
    using namespace std::literals;
    EXPECT_EQ(ToUtf16Bytes(L"A\u20ac\U0001F600"), "A\0\xAC\x20\x3D\xD8\x00\xDE"sv);
    EXPECT_EQ(FromUtf16Bytes("A\0\xAC\x20\x3D\xD8\x00\xDE"sv), L"A\u20ac\U0001F600");
    EXPECT_EQ(FromUtf16Bytes("A\0\xAC"sv), L"A");
    EXPECT_EQ(FromUtf16Bytes("A"), L"");
}

TEST(Text, FoldsCaseOfEveryScriptWhateverTheProcessLocale) {
    ASSERT_STREQ(std::setlocale(LC_ALL, nullptr), "C") << "the locale in which a service starts";
    const std::pair<std::wstring_view, std::wstring_view> cases[] = {
        {L"AZ[@`{az09", L"az[@`{az09"},     {L"\u00c4\u00d6\u00dc\u00df", L"\u00e4\u00f6\u00fc\u00df"},
        {L"\u0391\u03a9", L"\u03b1\u03c9"}, {L"\u0410\u042f\u0401", L"\u0430\u044f\u0451"},
        {L"\U00010400", L"\U00010428"},     {L"\u4e2d\U0001F600", L"\u4e2d\U0001F600"},
    };
    for (const auto& [text, folded] : cases) {
        EXPECT_EQ(FoldCase(text), folded);
        EXPECT_TRUE(EqualNoCase(text, folded)) << ToUtf8(text);
        EXPECT_EQ(FoldCase(FoldCase(text)), folded) << ToUtf8(text);
    }
}

TEST(Text, ComparesWithoutRegardToCase) {
    const std::wstring_view texts[] = {L"", L"a", L"A\u00c4", L"ab", L"ABC", L"B", L"\u00c4", L"\u00c4b"};
    const auto sign = [](int value) { return (value > 0) - (value < 0); };
    for (const auto left : texts) {
        for (const auto right : texts) {
            EXPECT_EQ(sign(CompareNoCase(left, right)), -sign(CompareNoCase(right, left)));
            EXPECT_EQ(CompareNoCase(left, right) == 0, left == right);
            EXPECT_EQ(CompareNoCase(FoldCase(left), right), CompareNoCase(left, right));
        }
    }
    EXPECT_LT(CompareNoCase(L"a", L"B"), 0);
    EXPECT_LT(CompareNoCase(L"A", L"b"), 0);
    EXPECT_LT(CompareNoCase(L"_", L"a"), 0) << "folded to small letters, which follow the underscore";
    EXPECT_LT(CompareNoCase(L"_", L"A"), 0);
    const std::set<std::wstring, CLessNoCase> names{L"Port", L"PORT", L"port", L"Protocol"};
    EXPECT_EQ(names.size(), 2U);
    EXPECT_TRUE(names.contains(std::wstring_view(L"pRoToCoL")));
}

TEST(Text, KnowsABeginningWithoutRegardToCase) {
    const std::tuple<std::wstring_view, std::wstring_view, bool> cases[] = {
        {L"", L"", true},
        {L"a", L"", true},
        {L"", L"a", false},
        {L"Report.get.SQL", L"report.GET", true},
        {L"Report", L"Reports", false},
        {L"\u00c4rger", L"\u00e4R", true},
        {L"aReport", L"Report", false},
    };
    for (const auto& [text, start, starts] : cases) {
        EXPECT_EQ(StartsWithNoCase(text, start), starts) << ToUtf8(text);
    }
}

TEST(Text, TakesADecimalNumberOffTheFront) {
    const std::tuple<std::wstring_view, std::optional<std::uint64_t>, std::wstring_view> cases[] = {
        {L"0", 0, L""},
        {L"12-34", 12, L"-34"},
        {L"007x", 7, L"x"},
        {L"18446744073709551615", 18446744073709551615U, L""},
        {L"18446744073709551615-", 18446744073709551615U, L"-"},
        {L"00000000000000000000000000000000000001", 1, L""},
        {L"18446744073709551616", {}, L"18446744073709551616"},
        {L"18446744073709551620", {}, L"18446744073709551620"},
        {L"184467440737095516150", {}, L"184467440737095516150"},
        {L"99999999999999999999999999", {}, L"99999999999999999999999999"},
        {L"", {}, L""},
        {L"-1", {}, L"-1"},
        {L"+1", {}, L"+1"},
        {L" 1", {}, L" 1"},
        {L"\u0661", {}, L"\u0661"},
        {L"\uff11", {}, L"\uff11"},
    };
    for (const auto& [text, number, rest] : cases) {
        std::wstring_view left = text;
        EXPECT_EQ(TakeDecimal(left), number) << ToUtf8(text);
        EXPECT_EQ(left, rest) << ToUtf8(text);
    }
}

TEST(Text, WritesHexadecimalInCapitals) {
    EXPECT_EQ(ToHex(0, 8), L"00000000");
    EXPECT_EQ(ToHex(0xC00000C9, 8), L"C00000C9");
    EXPECT_EQ(ToHex(0xABC, 1), L"ABC");
    EXPECT_EQ(ToHex(0xFFFFFFFFFFFFFFFF, 16), L"FFFFFFFFFFFFFFFF");
}

TEST(Text, KnowsTheHexadecimalDigitsAlone) {
    constexpr std::wstring_view kLow = L"0123456789abcdef";
    constexpr std::wstring_view kHigh = L"0123456789ABCDEF";
    for (wchar_t character = 0; character < 0x1000; ++character) {
        const auto at = std::min(kLow.find(character), kHigh.find(character));
        EXPECT_EQ(HexDigit(character), at == kLow.npos ? -1 : static_cast<int>(at))
            << static_cast<int>(character);
    }
}

}  // namespace
}  // namespace quorbel
