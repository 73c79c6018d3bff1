#include "LibService/trace/TraceText.h"
#include "platform/Text.h"

namespace quorbel {
namespace {

using Size = CTraceInsert::Size;
using Kind = CTraceInsert::Kind;

std::vector<TraceValue> Encoded(const CTraceText& text, std::initializer_list<TraceArgument> arguments) {
    CTraceArgumentWriter writer;
    text.Encode(arguments, writer);
    EXPECT_TRUE(writer.IsWhole());
    return DecodeArguments(writer.Bytes()).value_or(std::vector<TraceValue>());
}

TraceValue Encoded(const wchar_t* text, const TraceArgument& argument) {
    const auto values = Encoded(CTraceText(text), {argument});
    EXPECT_EQ(values.size(), 1U) << ::testing::PrintToString(std::wstring(text));
    return values.empty() ? TraceValue() : values[0];
}

TEST(TraceText, ReadsInsertsByTheirNumbersWhileTheseAreConsecutive) {
    const std::pair<const wchar_t*, std::string> cases[] = {
        {L"", ""},
        {L"%s1", "s"},
        {L"%d2 %s1 %x3", "sdx"},
        {L"%s1%d3", "s"},       // 2 is missing
        {L"%d2", ""},           // 1 is missing
        {L"%d0%d1", "d"},       // there is no 0
        {L"%s1 %c2 %d3", "s"},  // a conversion that defines no argument ends the list
        {L"%p1 %d2", ""},
        {L"%%s1 %%%s1", "s"},  // escaped percent signs
        {L"%s1 %d1", "s"},     // the first of two counts
        {L"%i1%u2%x3%X4%o5%f6%g7%s8%d9%d10", "iuxXofgsdd"},
        {L"%s %d. 100%", ""},  // no numbers
        {L"%1 %n %", ""},
        {L"%+10.3I64d1", "d"},
        {L"%-s1% d2%#x3%08X4%.5g5%ld6%hs7%Ld8%I32d9", "sdxXgdsdd"},
        {L"%--s1", ""},  // one flag only
        {L"%lls1", ""},
        {L"%I6", ""},
        {L"%s99999999999999999999999", ""},
    };
    for (const auto& [text, conversions] : cases) {
        std::string found;
        const CTraceText parsed(text);
        for (const CTraceInsert& insert : parsed.Inserts()) found += insert.conversion;
        EXPECT_EQ(found, conversions) << ::testing::PrintToString(std::wstring(text));
    }
}

TEST(TraceText, ReadsFlagWidthPrecisionAndSize) {
    const CTraceText text(L"%+10.3I64d1 %Lx2 %I32u3 %hs4 %ls5 %08X6 %.f7 %99999999999s8");
    const auto& inserts = text.Inserts();
    ASSERT_EQ(inserts.size(), 8U);
    EXPECT_EQ(inserts[0].flag, '+');
    EXPECT_EQ(inserts[0].width, 10);
    EXPECT_EQ(inserts[0].precision, 3);
    const Size sizes[] = {Size::Long64, Size::Unknown, Size::Unknown, Size::Short, Size::Long, Size::Plain};
    for (std::size_t i = 0; i < std::size(sizes); ++i) EXPECT_EQ(inserts[i].size, sizes[i]) << i;
    EXPECT_EQ(inserts[5].flag, '0');
    EXPECT_EQ(inserts[5].width, 8);
    EXPECT_EQ(inserts[6].precision, 0);
    EXPECT_EQ(inserts[6].kind, Kind::Floating);
    EXPECT_EQ(inserts[7].width, CTraceInsert::kWidest);
}

TEST(TraceText, GivesArgumentsTheTypesOfTheirInserts) {
    using std::monostate;
    const auto i = [](std::int64_t number) { return TraceValue(number); };
    const auto u = [](std::uint64_t number) { return TraceValue(number); };
    const std::tuple<const wchar_t*, TraceArgument, TraceValue> cases[] = {
        {L"%d1", -1, i(-1)},
        {L"%i1", 128, i(128)},
        {L"%d1", 0x1'8000'0000, i(-0x8000'0000LL)},  // read as 32 bits
        {L"%ld1", 0x1'0000'0005, i(5)},
        {L"%I64d1", 0x1'8000'0000, i(0x1'8000'0000)},
        {L"%I64d1", std::uint64_t{0xFFFF'FFFF'FFFF'FFFF}, i(-1)},
        {L"%hd1", 0x18000, i(-0x8000)},
        {L"%u1", -1, u(0xFFFF'FFFF)},
        {L"%hx1", -1, u(0xFFFF)},
        {L"%I64X1", -1, u(0xFFFF'FFFF'FFFF'FFFF)},
        {L"%o1", std::uint32_t{0xFFFF'FFFF}, u(0xFFFF'FFFF)},
        {L"%u1", true, u(1)},
        {L"%Ld1", 5, i(0)},
        {L"%I32u1", 5U, i(0)},
        {L"%d1", 2.9, i(2)},
        {L"%I64d1", 1e300, i(0)},
        {L"%I64u1", -1.0, i(0)},
        {L"%I64d1", std::nan(""), i(0)},
        {L"%d1", "5", i(0)},
        {L"%f1", 1.5, TraceValue(1.5)},
        {L"%g1", 3, TraceValue(3.0)},
        {L"%f1", L"x", TraceValue(0.0)},
        {L"%s1", L"abc", TraceValue(std::string("abc"))},
        {L"%s1", L"\u00ff", TraceValue(std::string("\xFF"))},
        {L"%s1", L"\u0100", TraceValue(std::u16string(u"\u0100"))},
        {L"%s1", "\xC3\xBF", TraceValue(std::string("\xFF"))},  // narrow texts are UTF-8
        {L"%s1", "\xE2\x82\xAC", TraceValue(std::u16string(u"\u20ac"))},
        {L"%s1", 17, TraceValue(std::string("17"))},
        {L"%ls1", L"abc", TraceValue(std::u16string(u"abc"))},
        {L"%ls1", L"\x1F600", TraceValue(std::u16string(u"\U0001F600"))},
        {L"%hs1", "\xFF raw", TraceValue(std::string("\xFF raw"))},
        {L"%hs1", L"\u20ac", TraceValue(std::string("\xE2\x82\xAC"))},
        {L"%Ls1", L"abc", monostate()},
        {L"%I64s1", L"abc", monostate()},
    };
    for (const auto& [text, argument, expected] : cases)
        EXPECT_TRUE(Encoded(text, argument) == expected) << ::testing::PrintToString(std::wstring(text));
}

TEST(TraceText, RendersValuesAsTheirInsertsSay) {
    struct CCase {
        const wchar_t* text;
        std::initializer_list<TraceArgument> arguments;
        const wchar_t* rendered;
    };
    const CCase cases[] = {{L"Method %s1 refused for %s2\r\n", {L"PUT", L"/a"}, L"Method PUT refused for /a"},
                           {L"%s2 before %s1", {L"one", L"two"}, L"two before one"},
                           {L"%s1 and %s1", {L"twice"}, L"twice and twice"},
                           {L"0x%08X1", {0xABCD}, L"0x0000ABCD"},
                           {L"%+d1|% d2|%-5d3|%5d4|%.3d5", {1, 2, 3, 4, 5}, L"+1| 2|3    |    4|005"},
                           {L"%#x1 %o2 %I64u3", {255, 8, ~std::uint64_t{0}}, L"0xff 10 18446744073709551615"},
                           {L"%.2f1 %g2", {1.005, 1e10}, L"1.00 1e+10"},
                           {L"%6s1|%-6s2|%.2s3", {L"abc", L"abc", L"abc"}, L"   abc|abc   |ab"},
                           {L"100%% of %s1", {L"it"}, L"100% of it"},
                           {L"%s1 %s2", {L"first"}, L"first "},
                           {L"%s1", {L"first", L"second"}, L"first"},
                           {L"none", {L"first"}, L"none"},
                           {L"%s1 %c2", {L"first", L"second"}, L"first "},
                           {L"[%Ld1]", {5}, L"[0]"},
                           {L"%hs1 %s2 %ls3", {"\xC3\xA4", L"\u00e4", L"\x1F600"}, L"\u00e4 \u00e4 \x1F600"},
                           {L"%s", {L"x"}, L"%s"}};
    for (const CCase& testCase : cases) {
        const CTraceText text(testCase.text);
        EXPECT_EQ(text.Render(Encoded(text, testCase.arguments)), testCase.rendered);
    }
    // The longest number that there is.
    const CTraceText wide(L"%64.64f1");
    EXPECT_EQ(wide.Render(Encoded(wide, {-1.7976931348623157e308})).size(), 1U + 309 + 1 + 64);
}

TEST(TraceText, RendersValuesOfAnotherKindThanTheirInserts) {
    const TraceValue values[] = {std::monostate(), std::int64_t{-7},    ~std::uint64_t{0}, 1.5,
                                 std::string("a"), std::u16string(u"b")};
    std::wstring rendered;
    for (const wchar_t* insert : {L"%8.8s1", L"%d1", L"%x1", L"%.1f1"}) {
        for (const TraceValue& value : values) rendered += CTraceText(insert).Render({value}) + L",";
    }
    EXPECT_EQ(rendered,
              L",-7,18446744073709551615,1.500000,       a,       b,"
              L",-7,-1,1.500000,a,b,"
              L",fffffffffffffff9,ffffffffffffffff,1.500000,a,b,"
              L",-7.0,18446744073709551616.0,1.5,a,b,");
}

/// Bytes in hexadecimal.
std::string Hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) text += ToUtf8(ToHex(byte, 2));
    return text;
}

TEST(TraceArguments, TakeTheBytesOfTheirEncoding) {
    const std::tuple<const wchar_t*, TraceArgument, const char*> cases[] = {
        {L"%u1", 0, "03"},
        {L"%u1", 255, "0CFF"},
        {L"%u1", 256, "0D0001"},
        {L"%u1", -1, "0FFFFFFFFF"},
        {L"%I64u1", ~std::uint64_t{0}, "13FFFFFFFFFFFFFFFF"},
        {L"%d1", -1, "04FF"},
        {L"%d1", 127, "047F"},
        {L"%d1", 128, "058000"},
        {L"%d1", -128, "0480"},
        {L"%d1", -129, "057FFF"},
        {L"%I64d1", std::numeric_limits<std::int64_t>::min(), "0B0000000000000080"},
        {L"%hd1", 0x8000, "050080"},
        {L"%Ld1", 5, "03"},
        {L"%s1", L"abc", "010003616263"},
        {L"%s1", L"", "010000"},
        {L"%s1", L"\u00e9", "010001E9"},
        {L"%s1", L"a\u0100", "02000261000001"},
        {L"%s1", L"\x1F600", "0200023DD800DE"},
        {L"%ls1", L"ab", "02000261006200"},
        {L"%hs1", "\xFF", "010001FF"},
        {L"%Ls1", L"abc", "00"},
        {L"%f1", 1.5, "14000000000000F83F"},
    };
    for (const auto& [text, argument, bytes] : cases) {
        CTraceArgumentWriter writer;
        CTraceText(text).Encode({argument}, writer);
        EXPECT_EQ(Hex(writer.Bytes()), bytes) << ::testing::PrintToString(std::wstring(text));
    }
    CTraceArgumentWriter longest;
    CTraceText(L"%s1").Encode({std::wstring(kMostArgumentBytes - 3, L'x')}, longest);
    EXPECT_TRUE(longest.IsWhole());
    for (const wchar_t* text : {L"%s1", L"%ls1"}) {
        CTraceArgumentWriter tooLong;
        CTraceText(text).Encode({std::wstring(kMostArgumentBytes - 2, L'x')}, tooLong);
        EXPECT_FALSE(tooLong.IsWhole());
    }
}

TEST(TraceArguments, AreReadFromAnyBytesWithoutHarm) {
    const std::vector<std::uint8_t> whole = {1, 0, 2, 'a', 'b', 5, 0x80, 0, 2, 0, 1, 0x41, 0, 0};
    ASSERT_TRUE(DecodeArguments(whole).has_value());
    std::size_t readable = 0;
    for (std::size_t length = 0; length <= whole.size(); ++length)
        readable += DecodeArguments(std::span(whole).first(length)).has_value() ? 1 : 0;
    EXPECT_EQ(readable, 5U);  // at each of the four arguments' ends, and before the first
    for (const std::uint8_t tag : {21, 128, 255})
        EXPECT_FALSE(DecodeArguments(std::span(&tag, 1)).has_value());
}

}  // namespace
}  // namespace quorbel
