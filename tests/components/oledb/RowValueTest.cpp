#include <cmath>
#include <cstring>
#include <limits>

#include "components/oledb/ByteStream.h"
#include "components/oledb/RowValue.h"
#include "platform/Error.h"

namespace quorbel {
namespace {

using Type = CSqlColumn::Type;
using namespace std::literals;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// A row with room for one value, bound as asked. Beyond the room stands what must not be written to.
struct CRow {
    static constexpr std::size_t kRoom = 512;
    alignas(16) std::array<std::byte, kRoom> bytes{};

    DBBINDING Binding(DBTYPE type, std::size_t width) const {
        return {1,
                16,
                0,
                8,
                nullptr,
                nullptr,
                DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS,
                DBPARAMIO_NOTPARAM,
                width,
                type};
    }
    template <class T>
    T At(std::size_t offset) const {
        T value;
        std::memcpy(&value, bytes.data() + offset, sizeof value);
        return value;
    }
    std::size_t Length() const { return At<std::size_t>(0); }
    template <class T>
    T Value() const {
        return At<T>(16);
    }
};

struct CText {
    DBSTATUS status;
    std::wstring text;
    bool operator==(const CText&) const = default;
};
void PrintTo(const CText& text, std::ostream* out) {
    *out << text.status << " " << std::string(text.text.begin(), text.text.end());
}

/// The value as text in a buffer for `characters` beside the terminating zero.
CText AsText(Type type, const CSqlValue& value, std::size_t characters) {
    CRow row;
    row.bytes.fill(std::byte{0x7A});
    const DBSTATUS status =
        WriteRowValue({L"", type}, value, row.Binding(DBTYPE_WSTR, characters + 1), row.bytes.data());
    EXPECT_EQ(row.At<DBSTATUS>(8), status);
    EXPECT_EQ(row.bytes[16 + (characters + 1) * sizeof(wchar_t)], std::byte{0x7A}) << "beyond the buffer";
    std::wstring text;
    for (std::size_t index = 0; index <= characters; ++index) {
        const auto character = row.At<wchar_t>(16 + index * sizeof(wchar_t));
        if (character == L'\0') break;
        text += character;
    }
    EXPECT_LE(text.size(), characters) << "not terminated";
    return {status, text};
}

TEST(RowValue, WritesEveryValueAsTextWithinItsWidth) {
    const std::tuple<Type, CSqlValue, std::size_t, CText> cases[] = {
        {Type::I2, std::int64_t{-32768}, 7, {DBSTATUS_S_OK, L"-32768"}},
        {Type::I2, std::int64_t{32768}, 7, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::I4, std::int64_t{INT32_MIN}, 12, {DBSTATUS_S_OK, L"-2147483648"}},
        {Type::I4, std::int64_t{INT32_MAX} + 1, 12, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::I4, 3.0, 12, {DBSTATUS_S_OK, L"3"}},
        {Type::I4, 3.5, 12, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::I4, "abc"sv, 12, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::I4, CSqlBytes{"1"sv}, 12, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::I4, std::int64_t{12345}, 3, {DBSTATUS_E_DATAOVERFLOW, L""}},
        {Type::I8, std::int64_t{INT64_MIN}, 22, {DBSTATUS_S_OK, L"-9223372036854775808"}},
        {Type::I8, 9223372036854775808.0, 22, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::I8, kInfinity, 22, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::I8, std::monostate(), 22, {DBSTATUS_S_ISNULL, L""}},
        {Type::R4, 0.1, 13, {DBSTATUS_S_OK, L"0.1"}},
        {Type::R4, 16777216.0, 13, {DBSTATUS_S_OK, L"16777216"}},
        {Type::R4, -1.17549435e-38, 13, {DBSTATUS_S_OK, L"-1.175494e-38"}},
        {Type::R4, double{-std::numeric_limits<float>::max()}, 13, {DBSTATUS_S_OK, L"-3.402823e+38"}},
        {Type::R4, 1e39, 13, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::R4, -kInfinity, 13, {DBSTATUS_S_OK, L"-1e999"}},
        {Type::R8, 0.1 + 0.2, 23, {DBSTATUS_S_OK, L"0.30000000000000004"}},
        {Type::R8, 100000.0, 23, {DBSTATUS_S_OK, L"100000"}},
        {Type::R8, 1e15, 23, {DBSTATUS_S_OK, L"1e+15"}},
        {Type::R8, -0.0, 23, {DBSTATUS_S_OK, L"-0"}},
        {Type::R8, -1.2345678901234567e-5, 23, {DBSTATUS_S_OK, L"-1.2345678901234568e-05"}},
        {Type::R8, -2.2250738585072014e-308, 23, {DBSTATUS_S_OK, L"-2.225073858507201e-308"}},
        {Type::R8, 5e-324, 23, {DBSTATUS_S_OK, L"5e-324"}},
        {Type::R8, kInfinity, 23, {DBSTATUS_S_OK, L"1e999"}},
        {Type::R8, std::nan(""), 23, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::R8, std::int64_t{7}, 23, {DBSTATUS_S_OK, L"7"}},
        {Type::R8, "7"sv, 23, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::R8, 1.0 / 3, 5, {DBSTATUS_S_OK, L"3e-01"}},
        {Type::R8, 1e-300, 3, {DBSTATUS_E_DATAOVERFLOW, L""}},
        {Type::Numeric, 1e19, 23, {DBSTATUS_S_OK, L"10000000000000000000"}},
        {Type::Numeric, 0.000001, 23, {DBSTATUS_S_OK, L"0.000001"}},
        {Type::Numeric,
         CSqlDecimal{"-0.12345678901234567890"sv},
         23,
         {DBSTATUS_S_OK, L"-0.12345678901234567890"}},
        {Type::Numeric, "x"sv, 23, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::Bool, std::int64_t{1}, 2, {DBSTATUS_S_TRUNCATED, L"Tr"}},
        {Type::Bool, std::int64_t{0}, 2, {DBSTATUS_S_TRUNCATED, L"Fa"}},
        {Type::Bool, true, 5, {DBSTATUS_S_OK, L"True"}},
        {Type::Bool, "true"sv, 2, {DBSTATUS_E_CANTCONVERTVALUE, L""}},
        {Type::Text, "abc"sv, 3, {DBSTATUS_S_OK, L"abc"}},
        {Type::Text, "abcd"sv, 3, {DBSTATUS_S_TRUNCATED, L"abc"}},
        {Type::Text, "\xC3\xA4\xF0\x9F\x98\x80x"sv, 3, {DBSTATUS_S_OK, L"\u00e4\U0001F600x"}},
        {Type::Text, "\xC3\xA4\xF0\x9F\x98\x80x"sv, 2, {DBSTATUS_S_TRUNCATED, L"\u00e4\U0001F600"}},
        {Type::Text, "\xFFq"sv, 3, {DBSTATUS_S_OK, L"\uFFFDq"}},
        {Type::Text, ""sv, 0, {DBSTATUS_S_OK, L""}},
        {Type::Text, std::int64_t{2024}, 10, {DBSTATUS_S_OK, L"2024"}},
        {Type::Text, CSqlBytes{"\x00\xAB"sv}, 10, {DBSTATUS_S_OK, L"00AB"}},
        {Type::Variant, CSqlBytes{"\x01"sv}, 10, {DBSTATUS_S_OK, L"01"}},
    };
    int number = 0;
    for (const auto& [type, value, width, text] : cases) {
        EXPECT_EQ(AsText(type, value, width), text) << "case " << number;
        ++number;
    }
    EXPECT_EQ(number, std::ssize(cases));
}

TEST(RowValue, RoundsNumbersSoThatTheyReadBackNearby) {
    for (const double value : {std::numeric_limits<double>::max(), -std::numeric_limits<double>::max(),
                               1.7976931348623155e308, 123456789.123456789, -9.999999999999999e-200}) {
        for (std::size_t width = 9; width <= 24; ++width) {
            const CText text = AsText(Type::R8, value, width);
            ASSERT_EQ(text.status, DBSTATUS_S_OK) << width;
            const double back = std::stod(text.text);
            EXPECT_TRUE(std::isfinite(back));
            EXPECT_NEAR(back / value, 1, 10 * std::pow(10, -static_cast<double>(width) + 8)) << width;
        }
    }
}

TEST(RowValue, TellsTheWholeLengthOfATruncatedText) {
    CRow row;
    EXPECT_EQ(WriteRowValue({L"", Type::Text}, "abcdef"sv, row.Binding(DBTYPE_WSTR, 3), row.bytes.data()),
              DBSTATUS_S_TRUNCATED);
    EXPECT_EQ(row.Length(), 6U);
}

TEST(RowValue, HandsOverTextsOfAnyLengthInMemoryOfTheirOwn) {
    const std::string large(10'000'000, 'x');
    const std::pair<std::string, std::wstring> cases[] = {
        {"", L""},
        {"a\0b"s, L"a\0b"s},
        {"\xE4\xBD\xA0", L"\u4F60"},
        {large, std::wstring(large.begin(), large.end())},
    };
    for (const auto& [text, wide] : cases) {
        CRow row;
        EXPECT_EQ(WriteRowValue({L"", Type::Variant}, std::string_view(text),
                                row.Binding(DBTYPE_WSTR | DBTYPE_BYREF, 8), row.bytes.data()),
                  DBSTATUS_S_OK);
        auto* const memory = row.Value<wchar_t*>();
        ASSERT_EQ(row.Length(), wide.size());
        EXPECT_TRUE(std::wstring_view(memory, row.Length() + 1) ==
                    std::wstring_view(wide.c_str(), wide.size() + 1));
        CoTaskMemFree(memory);
    }
    CRow row;
    row.bytes.fill(std::byte{1});
    EXPECT_EQ(
        WriteRowValue({L"", Type::Variant}, {}, row.Binding(DBTYPE_WSTR | DBTYPE_BYREF, 8), row.bytes.data()),
        DBSTATUS_S_ISNULL);
    EXPECT_EQ(row.Value<void*>(), nullptr) << "nothing to free";
}

TEST(RowValue, TellsTheTypeOfEachValueOfAVariantColumn) {
    const std::tuple<CSqlValue, DBTYPE, std::wstring> cases[] = {
        {std::int64_t{5}, DBTYPE_I8, L"5"},
        {0.5, DBTYPE_R8, L"0.5"},
        {true, DBTYPE_BOOL, L"True"},
        {"5"sv, DBTYPE_WSTR, L"5"},
        {CSqlBytes{"\xFF"sv}, DBTYPE_WSTR, L"FF"},
        {CSqlDecimal{"123456789012345678901234567890.5"sv}, DBTYPE_NUMERIC,
         L"123456789012345678901234567890.5"},
    };
    for (const auto& [value, type, text] : cases) {
        CRow row;
        DBTYPE told = 0;
        const DBBINDEXT extension{&told, 1};
        DBBINDING binding = row.Binding(DBTYPE_WSTR | DBTYPE_BYREF, 8);
        binding.pBindExt = &extension;
        ASSERT_EQ(WriteRowValue({L"", Type::Variant}, value, binding, row.bytes.data()), DBSTATUS_S_OK);
        EXPECT_EQ(told, type);
        EXPECT_EQ(std::wstring_view(row.Value<wchar_t*>(), row.Length()), text);
        CoTaskMemFree(row.Value<void*>());
    }
}

TEST(RowValue, WritesValuesOfTheColumnsOwnTypes) {
    const auto write = [](Type type, const CSqlValue& value, DBTYPE bound) {
        CRow row;
        EXPECT_EQ(WriteRowValue({L"", type}, value, row.Binding(bound, 8), row.bytes.data()), DBSTATUS_S_OK);
        return row;
    };
    EXPECT_EQ(write(Type::I2, std::int64_t{-7}, DBTYPE_I2).Value<std::int16_t>(), -7);
    EXPECT_EQ(write(Type::I4, std::int64_t{70000}, DBTYPE_I4).Value<std::int32_t>(), 70000);
    EXPECT_EQ(write(Type::I8, std::int64_t{INT64_MIN}, DBTYPE_I8).Value<std::int64_t>(), INT64_MIN);
    EXPECT_EQ(write(Type::R4, 0.5, DBTYPE_R4).Value<float>(), 0.5F);
    EXPECT_EQ(write(Type::R8, 0.1, DBTYPE_R8).Value<double>(), 0.1);
    EXPECT_EQ(write(Type::Bool, std::int64_t{1}, DBTYPE_BOOL).Value<VARIANT_BOOL>(), VARIANT_TRUE);
    CRow row;
    EXPECT_EQ(
        WriteRowValue({L"", Type::I8}, std::int64_t{70000}, row.Binding(DBTYPE_I2, 2), row.bytes.data()),
        DBSTATUS_E_DATAOVERFLOW);
}

TEST(RowValue, WritesVariantsAndStreamsThatOwnTheirBytes) {
    const auto write = [](Type type, const CSqlValue& value) {
        CRow row;
        quorbel::Ignore(WriteRowValue({L"", type}, value, row.Binding(DBTYPE_VARIANT, sizeof(VARIANT)),
                                      row.bytes.data()));
        CVariant variant;
        static_cast<VARIANT&>(variant) = row.Value<VARIANT>();
        return variant;
    };
    EXPECT_EQ(write(Type::I4, std::int64_t{5}).lVal, 5);
    EXPECT_EQ(write(Type::Variant, std::int64_t{5}).vt, VT_I8);
    EXPECT_EQ(write(Type::Variant, std::monostate()).vt, VT_NULL);
    EXPECT_EQ(write(Type::Variant, "a\0b"sv).Text(), L"a\0b"sv);
    auto bytes = std::make_unique<std::string>(100'000, 'q');
    const CVariant blob = write(Type::Variant, CSqlBytes{*bytes});
    bytes.reset();
    std::string read;
    ASSERT_EQ(blob.vt, VT_UNKNOWN);
    EXPECT_EQ(ReadAll(blob.punkVal, 100'000, read), S_OK);
    EXPECT_EQ(read, std::string(100'000, 'q'));
    EXPECT_EQ(ReadAll(blob.punkVal, 100'000, read), S_OK);
    EXPECT_EQ(read, "") << "a stream is read once";
    CRow row;
    EXPECT_EQ(
        WriteRowValue({L"", Type::Text}, "\xC3\xA4"sv, row.Binding(DBTYPE_IUNKNOWN, 8), row.bytes.data()),
        DBSTATUS_S_OK);
    EXPECT_EQ(row.Length(), 2U);
    EXPECT_EQ(ReadAll(row.Value<IUnknown*>(), 1, read), E_FAIL) << "more than was asked for";
    row.Value<IUnknown*>()->Release();
}

}  // namespace
}  // namespace quorbel
