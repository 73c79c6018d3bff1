#include "auth/passkeys/Cbor.h"
#include "tests/support/CborWriter.h"

namespace quorbel {
namespace {

using namespace std::literals;

std::optional<CCborItem> Decode(std::string_view bytes) {
    std::size_t used = 0;
    auto item = CCborItem::Decode(bytes, used);
    EXPECT_TRUE(!item || used == bytes.size());
    return item;
}

std::string Nested(std::size_t depth, std::string_view one) {
    std::string bytes;
    for (std::size_t i = 0; i < depth; ++i) bytes += one;
    return bytes + '\0';
}

TEST(Cbor, ReadsIntegersWithin64Bits) {
    const std::pair<std::string_view, std::optional<std::int64_t>> cases[] = {
        {"\x00"sv, 0},
        {"\x17"sv, 23},
        {"\x18\x18"sv, 24},
        {"\x18\x05"sv, 5},
        {"\x19\x01\x00"sv, 256},
        {"\x1A\x00\x01\x00\x00"sv, 65536},
        {"\x1B\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv, INT64_MAX},
        {"\x1B\x80\x00\x00\x00\x00\x00\x00\x00"sv, std::nullopt},
        {"\x20"sv, -1},
        {"\x26"sv, -7},
        {"\x39\x01\x00"sv, -257},
        {"\x39\xFF\xFE"sv, -65535},
        {"\x3B\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv, INT64_MIN},
        {"\x3B\x80\x00\x00\x00\x00\x00\x00\x00"sv, std::nullopt},
        {"\x41\x05"sv, std::nullopt},
        {"\xF5"sv, std::nullopt},
    };
    for (const auto& [bytes, value] : cases) {
        const auto item = Decode(bytes);
        ASSERT_TRUE(item);
        EXPECT_EQ(item->Integer(), value);
    }
}

TEST(Cbor, GivesContentOfTheKindThatIsThere) {
    using namespace cbor;
    const auto item =
        Decode(Array({Bytes("\x01\x02"), Text("t\xC3\xA4"), Map({}), "\xFB" + std::string(8, 'f')}));
    ASSERT_TRUE(item);
    const auto items = item->Array();
    ASSERT_TRUE(items && items->size() == 4);
    EXPECT_EQ(items->at(0).Bytes(), "\x01\x02");
    EXPECT_EQ(items->at(0).Text(), std::nullopt);
    EXPECT_EQ(items->at(1).Text(), "t\xC3\xA4");
    EXPECT_EQ(items->at(1).Bytes(), std::nullopt);
    EXPECT_TRUE(items->at(2).MapOfTexts() && items->at(2).MapOfTexts()->empty());
    EXPECT_FALSE(items->at(2).Array());
    EXPECT_FALSE(item->MapOfTexts());
    EXPECT_FALSE(items->at(3).Integer());
}

TEST(Cbor, KeepsAnItemAliveForItsParts) {
    std::optional<std::vector<CCborItem>> items = Decode(cbor::Array({cbor::Text("part")}))->Array();
    ASSERT_TRUE(items);
    EXPECT_EQ(items->at(0).Text(), "part");
}

TEST(Cbor, RefusesMapsOfOtherOrRepeatedKeys) {
    using namespace cbor;
    const std::string one = Integer(1), text = Text("a");
    const std::tuple<std::string, bool, bool> cases[] = {
        {Map({{text, one}, {Text("b"), one}}), true, false},
        {Map({{text, one}, {Text("b"), one}, {text, text}}), false, false},
        {Map({{one, one}, {Integer(-1), one}}), false, true},
        {Map({{one, one}, {"\x18\x01", one}}), false, false},  // the same key in another form
        {Map({{one, one}, {text, one}}), false, false},
        {Map({{Bytes("a"), one}}), false, false},
        {Map({}), true, true},
        {Array({}), false, false},
    };
    for (const auto& [bytes, isOfTexts, isOfIntegers] : cases) {
        const auto item = Decode(bytes);
        ASSERT_TRUE(item);
        EXPECT_EQ(item->MapOfTexts().has_value(), isOfTexts);
        EXPECT_EQ(item->MapOfIntegers().has_value(), isOfIntegers);
    }
}

TEST(Cbor, TakesTheFirstItemAndSaysHowLongItIs) {
    std::size_t used = 0;
    const auto item = CCborItem::Decode("\x82\x01\x02\x03\xFF"sv, used);
    ASSERT_TRUE(item);
    EXPECT_EQ(used, 3U);
    EXPECT_EQ(item->Array()->size(), 2U);
}

TEST(Cbor, RefusesWhatIsNotThere) {
    using namespace cbor;
    const std::string whole = Map({{Text("fmt"), Text("none")},
                                   {Text("attStmt"), Map({{Text("x5c"), Array({Bytes("1"), Bytes("22")})}})},
                                   {Text("authData"), Bytes(std::string(300, 'd'))}});
    ASSERT_TRUE(Decode(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(Decode(whole.substr(0, size))) << size;
}

TEST(Cbor, BelievesNoDeclaredLength) {
    const std::string_view cases[] = {
        "\x9B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv,          // array
        "\x9A\x10\x00\x00\x00\x01"sv,                      // of a gigabyte and more of pointers
        "\xBB\x80\x00\x00\x00\x00\x00\x00\x00"sv,          // map whose doubled count is 0
        "\xBB\x80\x00\x00\x00\x00\x00\x00\x01\x01\x01"sv,  // and 2
        "\xBA\x10\x00\x00\x00\x01"sv,
        "\x5B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"sv,  // byte string
        "\x7B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xF0z"sv,
        "\x81\x9A\x10\x00\x00\x00\x01"sv,
    };
    for (const std::string_view bytes : cases) EXPECT_FALSE(Decode(bytes));
}

TEST(Cbor, RefusesWhatAuthenticatorsNeverSend) {
    const std::pair<const char*, std::string_view> cases[] = {
        {"array without length", "\x9F\x01\xFF"sv},
        {"map without length", "\xBF\x01\x02\xFF"sv},
        {"bytes without length", "\x5F\x41x\xFF"sv},
        {"text without length", "\x7F\x61x\xFF"sv},
        {"break", "\xFF"sv},
        {"tag", "\xC0\x01"sv},
        {"tag inside", "\x81\xC0\x01"sv},
        {"reserved length", "\x1C"sv},
        {"reserved length", "\x5E"sv},
        {"nothing", ""sv},
        {"text cut in a character", "\x61\xC3"sv},
        {"text in an overlong form", "\x62\xC0\xAF"sv},
        {"text with a surrogate", "\x63\xED\xA0\x80"sv},
    };
    for (const auto& [name, bytes] : cases) EXPECT_FALSE(Decode(bytes)) << name;
}

TEST(Cbor, BoundsNestingAndSize) {
    EXPECT_TRUE(Decode(Nested(CCborItem::kMostNesting, "\x81")));
    EXPECT_FALSE(Decode(Nested(CCborItem::kMostNesting + 1, "\x81")));
    EXPECT_TRUE(Decode(Nested(CCborItem::kMostNesting, "\xA1\x01"sv)));
    EXPECT_FALSE(Decode(Nested(CCborItem::kMostNesting + 1, "\xA1\x01"sv)));
    EXPECT_FALSE(Decode(Nested(60000, "\x81")));
    // The nesting ends with the arrays and does not count those beside each other.
    EXPECT_TRUE(Decode(cbor::Array(std::vector<std::string>(1000, cbor::Array({cbor::Integer(1)})))));

    const std::size_t head = 5;
    EXPECT_TRUE(Decode("\x5A\x00\x00\xFF\xFB"s + std::string(CCborItem::kMostBytes - head, 'x')));
    EXPECT_FALSE(Decode("\x5A\x00\x00\xFF\xFC"s + std::string(CCborItem::kMostBytes - head + 1, 'x')));
}

}  // namespace
}  // namespace quorbel
