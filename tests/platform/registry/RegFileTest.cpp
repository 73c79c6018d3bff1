#include "platform/Text.h"
#include "platform/registry/RegFileParser.h"
#include "tests/platform/registry/RegistryFixture.h"
#include "tests/support/FaultyRegistry.h"

namespace quorbel {
namespace {

using RegFileTest = RegistryTest;

const std::string kHeader = "Windows Registry Editor Version 5.00\n";

TEST_F(RegFileTest, EveryFormOfAValueIsRead) {
    const struct {
        const char* line;
        CNamedValue value;
    } cases[] = {
        {R"(@="default")", {L"", CValue::FromText(L"default")}},
        {R"("a\\b\"c"="x\\y\"z")", {L"a\\b\"c", CValue::FromText(L"x\\y\"z")}},
        {R"(  "/docs" = "; no comment"  )", {L"/docs", CValue::FromText(L"; no comment")}},
        {R"("e"="")", {L"e", CValue::FromText(L"")}},
        {"\"é\"=\"\U0001F600\"", {L"é", CValue::FromText(L"\U0001F600")}},
        {R"("d"=dword:0000000a)", {L"d", CValue::FromNumber32(10)}},
        {R"("d"=DWORD:F)", {L"d", CValue::FromNumber32(15)}},
        {R"("q"=hex(b):08,07,06,05,04,03,02,01)", {L"q", CValue::FromNumber64(0x0102030405060708)}},
        {R"("h"=hex:)", {L"h", {ValueType::Binary, ""}}},
        {R"("h"=hex:1, ff ,0A)", {L"h", {ValueType::Binary, "\x01\xFF\x0A"}}},
        {R"("n"=hex(0):)", {L"n", {ValueType::None, ""}}},
        {R"("o"=hex(FFFF1234):00)", {L"o", {static_cast<ValueType>(0xFFFF1234), std::string(1, '\0')}}},
        {"\"c\"=hex:01,\\\n  02,\\\n\t03", {L"c", {ValueType::Binary, "\x01\x02\x03"}}},
        {"\"c\"=hex(7):\\\n  61,00", {L"c", {ValueType::MultiText, std::string("a\0", 2)}}},
    };
    const auto registry = OpenRegistry();
    for (const auto& test : cases) {
        const std::string text = kHeader + "; comment\n\n[-HKLM\\T]\n[hklm\\t]\n" + test.line;
        const auto error = ImportRegFile(*registry, text);
        ASSERT_FALSE(error) << test.line << ToUtf8(error->reason);
        const auto key = registry->LocalMachine()->Open(L"T", KeyAccess::Read);
        EXPECT_EQ(key.Value()->Values().Value(), std::vector{test.value}) << test.line;
    }
}

TEST_F(RegFileTest, AWrongTextIsRefusedWithItsLine) {
    const std::string deep = [] {
        std::string path = "[HKLM";
        for (int i = 0; i <= 512; ++i) path += "\\d";
        return path + "]";
    }();
    const std::string key = kHeader + "[HKLM\\T]\n";
    const struct {
        std::string text;
        std::size_t line;
    } cases[] = {
        {"", 1},
        {"REGEDIT4\n[HKLM\\T]", 1},
        {"\n" + kHeader, 1},
        {"\xFE\xFF", 1},
        {kHeader + "\n@=\"before any key\"", 3},
        {kHeader + "[HKLM\\T", 2},
        {kHeader + "[HKEY_CURRENT_USER\\T]", 2},
        {kHeader + "[HKLMx\\T]", 2},
        {kHeader + "[]", 2},
        {kHeader + "[-HKLM]", 2},
        {kHeader + "[-HKLM\\T]\n@=\"x\"", 3},
        {kHeader + "[HKLM\\" + std::string(256, 'x') + "]", 2},
        {kHeader + "[HKLM\\a\tb]", 2},
        {kHeader + deep, 2},
        {key + "name=1", 3},
        {key + "@", 3},
        {key + "@=", 3},
        {key + "@=1", 3},
        {key + "@=\"a", 3},
        {key + "@=\"a\\", 3},
        {key + "@=\"a\\n\"", 3},
        {key + "@=\"a\" b", 3},
        {key + "@=\"a\rb\"", 3},
        {key + std::string("@=\"a\0b\"", 8), 3},
        {key + "\"name=\"x\"", 3},
        {key + "\"\"=\"x\"", 3},
        {key + "\"a\tb\"=\"x\"", 3},
        {key + "\"n\" \"x\"", 3},
        {key + "@=dword:", 3},
        {key + "@=dword:123456789", 3},
        {key + "@=dword:0x1", 3},
        {key + "@=dword:1 2", 3},
        {key + "@=hex", 3},
        {key + "@=hex 01", 3},
        {key + "@=hex(:01", 3},
        {key + "@=hex():01", 3},
        {key + "@=hex(1FFFFFFFF):01", 3},
        {key + "@=hex:0g", 3},
        {key + "@=hex:001", 3},
        {key + "@=hex:01,", 3},
        {key + "@=hex:01,,02", 3},
        {key + "@=hex:01\\\n02", 3},
        {key + "@=hex:01,\\", 3},
        {key + "@=hex:01,\\\n", 3},
        {key + "@=hex:01,\\\n02,\\\nzz", 5},
        {key + "@=hex:01,\\\n\n\"n\"=\"x\"", 4},
        {key + "@=\"x\"\n\n\"\xFF\"=\"x\"\n", 5},
        {key + "@=\"\xED\xA0\x80\"", 3},
        {ToUtf16Bytes(FromUtf8(key)) + std::string("@\0=\0\"\0\x00\xD8\"\0", 10), 3},
        {ToUtf16Bytes(FromUtf8(kHeader)) + "x", 2},
    };
    const auto registry = OpenRegistry();
    for (const auto& test : cases) {
        const auto error = ImportRegFile(*registry, test.text);
        ASSERT_TRUE(error) << test.text;
        EXPECT_EQ(error->line, test.line) << test.text << "\n" << ToUtf8(error->reason);
        EXPECT_EQ(error->code, ErrorCode::InvalidData);
        EXPECT_TRUE(registry->LocalMachine()->Subkeys().Value().empty()) << test.text;
    }
}

TEST_F(RegFileTest, EncodingsAndLineEndsMakeNoDifference) {
    const std::string text =
        kHeader + "\n[HKEY_LOCAL_MACHINE\\Ü\U0001F600]\n@=\"é\"\n\"x\"=hex:01,\\\n  02\n";
    std::string windows;
    for (char c : text) windows += c == '\n' ? "\r\n" : std::string(1, c);
    const auto expected = std::get<std::vector<CRegFileChange>>(ParseRegFile(text));
    ASSERT_EQ(expected.size(), 3u);
    for (const std::string& lines : {text, windows}) {
        const std::string utf16 = ToUtf16Bytes(FromUtf8(lines));
        for (const std::string& bytes : {lines, "\xEF\xBB\xBF" + lines, utf16, "\xFF\xFE" + utf16}) {
            const auto parsed = ParseRegFile(bytes);
            ASSERT_TRUE(std::holds_alternative<std::vector<CRegFileChange>>(parsed));
            EXPECT_EQ(std::get<std::vector<CRegFileChange>>(parsed), expected);
        }
    }
}

TEST_F(RegFileTest, KeysAndValuesAreDeletedWhetherTheyExistOrNot) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    Ignore(Create(*root, L"T\\gone\\below"));
    ASSERT_EQ(Create(*root, L"T")->Set(L"gone", {}), ErrorCode::Success);
    const std::string text =
        kHeader + "[-HKLM\\T\\Gone]\n[-HKLM\\missing\\too]\n[HKLM\\T]\n\"Gone\"=-\n\"missing\"=-\n@=-\n";
    ASSERT_FALSE(ImportRegFile(*registry, text));
    EXPECT_EQ(root->Subkeys().Value(), std::vector<std::wstring>{L"T"});
    const auto key = root->Open(L"T", KeyAccess::Read);
    EXPECT_TRUE(key.Value()->Subkeys().Value().empty());
    EXPECT_TRUE(key.Value()->Values().Value().empty());
}

TEST_F(RegFileTest, AnImportThatFailsHalfwayLeavesTheTreeAsItWas) {
    const auto target = OpenRegistry();
    Ignore(Create(*target->LocalMachine(), L"Before"));
    CFaultyRegistry registry(target);
    const std::string text = kHeader + "[-HKLM\\Before]\n[HKLM\\T]\n\"a\"=\"1\"\n\"b\"=\"2\"\n[HKLM\\U]\n";
    const struct {
        RegistryOperation operation;
        int call;
    } cases[] = {{RegistryOperation::Begin, 1},
                 {RegistryOperation::DeleteTree, 1},
                 {RegistryOperation::Set, 2},
                 {RegistryOperation::Create, 2},
                 {RegistryOperation::Commit, 1}};
    for (const auto& fault : cases) {
        registry.Faults().Fail(fault.operation, ErrorCode::DiskFull, fault.call);
        const auto error = ImportRegFile(registry, text);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, ErrorCode::DiskFull);
        EXPECT_EQ(error->line, 0u);
        EXPECT_EQ(target->LocalMachine()->Subkeys().Value(), std::vector<std::wstring>{L"Before"});
        registry.Faults().FailNothing();
    }
    EXPECT_FALSE(ImportRegFile(registry, text));
}

TEST_F(RegFileTest, AnExportHasTheCustomaryForm) {
    const auto registry = OpenRegistry();
    const auto key = Create(*registry->LocalMachine(), L"Software\\Ü");
    const std::pair<const wchar_t*, CValue> values[] = {
        {L"", CValue::FromText(L"C:\\x \"y\"")}, {L"b", {ValueType::Binary, std::string(30, '\xAB')}},
        {L"d", CValue::FromNumber32(10)},        {L"lines", CValue::FromText(L"a\nb")},
        {L"q", CValue::FromNumber64(1)},
    };
    for (const auto& [name, value] : values) ASSERT_EQ(key->Set(name, value), ErrorCode::Success);
    Ignore(Create(*key, L"Sub"));
    const std::wstring expected =
        L"\uFEFFWindows Registry Editor Version 5.00\r\n"
        L"\r\n"
        L"[HKEY_LOCAL_MACHINE\\Software\\Ü]\r\n"
        L"@=\"C:\\\\x \\\"y\\\"\"\r\n"
        L"\"b\"=hex:ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,\\\r\n"
        L"  ab,ab,ab,ab,ab,ab,ab\r\n"
        L"\"d\"=dword:0000000a\r\n"
        L"\"lines\"=hex(1):61,00,0a,00,62,00,00,00\r\n"
        L"\"q\"=hex(b):01,00,00,00,00,00,00,00\r\n"
        L"\r\n"
        L"[HKEY_LOCAL_MACHINE\\Software\\Ü\\Sub]\r\n";
    EXPECT_EQ(FromUtf16Bytes(ExportRegFile(*registry, L"SOFTWARE\\ü").Value()), expected);
    EXPECT_EQ(ExportRegFile(*registry, L"missing").Error(), ErrorCode::FileNotFound);
}

/// Values of every type, fitting and not.
CValue GeneratedValue(int number) {
    const std::wstring text = L"Text \\\"" + std::to_wstring(number) + L"\" é\U0001F600\uFFFD";
    switch (number % 14) {
        case 0: return CValue::FromText(text);
        case 1: return CValue::FromText(text, ValueType::ExpandableText);
        case 2: return CValue::FromNumber32(static_cast<std::uint32_t>(number) * 0x9E3779B9u);
        case 3: return CValue::FromNumber64(static_cast<std::uint64_t>(number) * 0x9E3779B97F4A7C15u);
        case 4:
            return {ValueType::Binary,
                    std::string(static_cast<std::size_t>(number % 100), static_cast<char>(number))};
        case 5: return CValue::FromTexts({text, L"", L"x"});
        case 6: return {ValueType::None, {}};
        case 7: return {ValueType::Text, "odd"};
        case 8: return {ValueType::Text, std::string("\x00\xD8\x00\x00", 4)};
        case 9: return CValue::FromText(L"line\r\nend");
        case 10: return {ValueType::Number32, "five!"};
        case 11: return {ValueType::Number32BigEndian, std::string("\0\0\0\1", 4)};
        case 12: return {static_cast<ValueType>(0x80000000u + static_cast<std::uint32_t>(number)), "x"};
        default: return {ValueType::Text, {}};
    }
}

void Generate(IRegistry& registry, int keys) {
    const auto transaction = registry.Begin();
    const auto root = registry.LocalMachine();
    for (int i = 0; i < keys; ++i) {
        const std::wstring path =
            L"Tree\\Ä" + std::to_wstring(i % 10) + L"\\[" + std::to_wstring(i % 100) + L"]\\" +
            std::wstring(static_cast<std::size_t>(1 + i % 200), L'\U00010400') + std::to_wstring(i);
        const auto key = root->Create(path);
        ASSERT_TRUE(key.IsOk());
        for (int v = 0; v < 3; ++v) {
            const std::wstring name = v == 0 ? L"" : L"\"\\Name=" + std::to_wstring(v);
            ASSERT_EQ(key.Value()->Set(name, GeneratedValue(3 * i + v)), ErrorCode::Success);
        }
    }
    ASSERT_EQ(transaction.Value()->Commit(), ErrorCode::Success);
}

TEST_F(RegFileTest, ImportingAnExportOfTenThousandKeysAndExportingAgainGivesTheSameBytes) {
    const auto first = OpenRegistry();
    Generate(*first, 10'000);
    const std::string exported = ExportRegFile(*first, L"Tree").Value();
    ASSERT_GT(std::count(exported.begin(), exported.end(), '['), 10'000);
    const CTemporaryFolder elsewhere;
    const auto second = OpenSqliteRegistry(elsewhere.Path(), options).Value();
    ASSERT_FALSE(ImportRegFile(*second, exported));
    EXPECT_TRUE(ExportRegFile(*second, L"tree").Value() == exported);
}

}  // namespace
}  // namespace quorbel
