#include "platform/Text.h"
#include "platform/messages/MessageModule.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

std::string Entry(std::string_view header, std::string_view text) {
    return std::string(header) + "Language=English\n" + std::string(text) + ".\n";
}

std::shared_ptr<const CMessageModule> Parsed(std::string_view catalogue) {
    const auto module = CMessageModule::Parse(catalogue);
    EXPECT_TRUE(module.IsOk()) << catalogue;
    return module.IsOk() ? module.Value() : nullptr;
}

TEST(MessageModule, BuildsIdentifiersFromSeverityFacilityAndNumber) {
    const auto module = Parsed(
        "\xEF\xBB\xBF; a comment\r\n"
        "MessageIdTypedef=DWORD\r\n"
        "SeverityNames=(Success=0x0:STATUS_OK\r\n   Grave=0x3\r\n)\r\n"
        "FacilityNames=(One=1 Storage=0xFFF:FACILITY_STORAGE)\r\n"
        "LanguageNames=(German=0x407:MSG00407)\r\n\r\n"
        "MessageId=0xCE\r\nSeverity=Grave\r\nFacility=One\r\nSymbolicName=FIRST\r\n"
        "Language=German\r\neins\r\n.\r\nLanguage=English\r\none\r\n.\r\n"
        "MessageId=\r\nLanguage=English\r\nnext\r\n.\r\n"
        "messageid = +16\r\nSEVERITY = informational\r\nfacility = "
        "storage\r\nLanguage=English\r\nfar\r\n.\r\n"
        "MessageId=7\r\nSeverity=Warning\r\nLanguage=English\r\n.\r\n");
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->Identifiers(),
              (std::vector<std::uint32_t>{0x4FFF00DF, 0x8FFF0007, 0xC00100CE, 0xC00100CF}));
    EXPECT_EQ(module->Find(0xC00100CE), L"one\r\n");
    EXPECT_EQ(module->Find(0xC00100CF), L"next\r\n");
    EXPECT_EQ(module->Find(0x8FFF0007), L"");
    EXPECT_EQ(module->Find(0xC00100CD), std::nullopt);
}

TEST(MessageModule, KeepsLinesThatLookLikeStatementsInsideATextAsText) {
    const auto module = Parsed(Entry("MessageId=1\n", "; no comment\nMessageId=2\n\n ..\n"));
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->Find(1), L"; no comment\r\nMessageId=2\r\n\r\n ..\r\n");
    EXPECT_EQ(module->Identifiers().size(), 1U);
}

TEST(MessageModule, RefusesWhatIsNoCatalogue) {
    const std::string good = Entry("MessageId=1\n", "text\n");
    const std::string cases[] = {
        "no statement\n",
        "Unknown=1\n" + good,
        "Language=English\ntext\n.\n",                // without MessageId
        "MessageId=1\nLanguage=English\ntext\n",      // no full stop
        "MessageId=1\nLanguage=English\ntext\n. \n",  // a blank after it
        "MessageId=1\nLanguage=Klingon\ntext\n.\n",
        "MessageId=1\nMessageId=2\nLanguage=English\ntext\n.\n",  // an entry without text
        good + "MessageId=2\n",
        good + good,  // the same identifier twice
        good + "Language=English\nagain\n.\n",
        good + "Severity=Error\n",  // outside of an entry
        Entry("MessageId=0x10000\n", ""),
        Entry("MessageId=0xC0000064\n", ""),
        Entry("MessageId=99999999999999999999999\n", ""),
        Entry("MessageId=-1\n", ""),
        Entry("MessageId=0x\n", ""),
        Entry("MessageId=12ab\n", ""),
        Entry("MessageId=1\nSeverity=Fatal\n", ""),
        Entry("MessageId=1\nFacility=None\n", ""),
        Entry("MessageId=1\nSeverity=Error\nSeverity=Error\n", ""),
        Entry("MessageId=1\nSymbolicName=\n", ""),
        Entry("MessageId=0xFFFF\n", "") + Entry("MessageId=\n", ""),
        Entry("MessageId=0xFFFF\n", "") + Entry("MessageId=+4294967295\n", ""),
        "SeverityNames=Success=0\n" + good,
        "SeverityNames=(Success=0\n",  // no end
        "SeverityNames=(Success=4)\n" + good,
        "SeverityNames=(=0)\n" + good,
        "SeverityNames=(Success)\n" + good,
        "SeverityNames=(Success=0) rest\n" + good,
        "FacilityNames=(Far=0x1000)\n" + good,
        good + "FacilityNames=(Late=1)\n",
        "MessageId=1\nLanguage=English\n\xC0\xAF\n.\n",  // not UTF-8
        std::string("MessageId=1\nLanguage=English\n\0\n.\n", 33),
    };
    ASSERT_TRUE(CMessageModule::Parse(good).IsOk());
    for (const std::string& catalogue : cases)
        EXPECT_EQ(CMessageModule::Parse(catalogue).Error(), ErrorCode::BadFileType) << catalogue;
}

TEST(MessageModule, SurvivesEveryCutAndEveryChangedByte) {
    const std::string good =
        "FacilityNames=(One=1)\nMessageId=0x1\nSeverity=Error\nFacility=One\nLanguage=English\n%1 %!x! "
        "%9!s!\n.\n";
    std::size_t accepted = 0;
    const auto use = [&accepted](const std::string& catalogue) {
        const auto module = CMessageModule::Parse(catalogue);
        if (!module.IsOk()) return;
        ++accepted;
        for (std::uint32_t id : module.Value()->Identifiers()) Ignore(module.Value()->Format(id, {}));
    };
    for (std::size_t at = 0; at < good.size(); ++at) {
        use(good.substr(0, at));
        for (char byte : {'\0', '\n', '=', '%', '(', ')', '0', '\xFF'}) {
            std::string changed = good;
            changed[at] = byte;
            use(changed);
        }
    }
    EXPECT_GT(accepted, 0U);
}

TEST(MessageModule, ReplacesInsertsAndEscapes) {
    const std::vector<std::wstring> inserts{L"A", L"", L"%1"};
    const std::tuple<std::string, const wchar_t*, std::size_t> cases[] = {
        {"%1", L"A\r\n", 1},
        {"%3%1%3", L"%1A%1\r\n", 3},
        {"%2|", L"|\r\n", 2},
        {"%7.", L".\r\n", 7},
        {"%100", L"0\r\n", 10},
        {"%99", L"\r\n", 99},
        {"%1!s!%2!d!.", L"A.\r\n", 2},
        {"%1!s", L"A!s\r\n", 1},
        {"100%% %%1", L"100% %1\r\n", 0},
        {"a%nb%tc%bd%.%!%r", L"a\r\nb\tc d.!\r\r\n", 0},
        {"cut%0%9 here", L"cut", 0},
        {"%x%", L"x\r\n", 0},
        {"", L"\r\n", 0},
    };
    for (const auto& [text, formatted, count] : cases) {
        const auto module = Parsed(Entry("MessageId=5\n", text + "\n"));
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(module->Format(5, inserts), formatted) << text;
        EXPECT_EQ(module->InsertCount(5), count) << text;
        EXPECT_EQ(module->Format(6, inserts), std::nullopt);
        EXPECT_EQ(module->InsertCount(6), 0U);
    }
}

TEST(MessageModule, SaysWhyAFileCannotBeLoaded) {
    const CTemporaryFolder folder;
    WriteFile(folder / "good", Entry("MessageId=1\n", "text\n"));
    WriteFile(folder / "large", std::string((1 << 20) + 1, ';'));
    WriteFile(folder / "largest", std::string(1 << 20, ';'));
    EXPECT_TRUE(CMessageModule::Load(folder / "good").IsOk());
    EXPECT_TRUE(CMessageModule::Load(folder / "largest").IsOk());
    EXPECT_EQ(CMessageModule::Load(folder / "large").Error(), ErrorCode::FileTooLarge);
    EXPECT_EQ(CMessageModule::Load(folder / "missing").Error(), ErrorCode::FileNotFound);
    EXPECT_EQ(CMessageModule::Load(folder.Path()).Error(), ErrorCode::BadFileType);
}

}  // namespace
}  // namespace quorbel
