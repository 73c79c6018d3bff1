#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"
#include "platform/Text.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/FakeKey.h"

namespace quorbel {
namespace {

constexpr std::wstring_view kName = L"Quorbel HTTP Service";
const std::wstring kSourceKey =
    L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Quorbel HTTP Service\\Quorbel HTTP Service";

std::wstring ModuleText() {
    return FromUtf8(std::string(QUORBEL_PROGRAMS) + "/EvtQBHTTPService.dll");
}

std::unique_ptr<IKey> SourceKey(const CFakeKey& root) {
    auto key = root.Open(kSourceKey, KeyAccess::ReadWrite);
    EXPECT_TRUE(key.IsOk());
    return key.IsOk() ? std::move(key).Value() : nullptr;
}

TEST(EventLog, FindsTheModuleBesideTheProgram) {
    const std::pair<const char*, const char*> cases[] = {
        {"/opt/bin/QBHTTPService", "/opt/bin/EvtQBHTTPService.dll"},
        {"/opt/bin/Service.exe", "/opt/bin/EvtService.dll"},
        {"/opt/bin/a.b.exe", "/opt/bin/Evta.b.dll"},
        {"/opt/b.exe/service", "/opt/b.exe/Evtservice.dll"},
        {"/opt/service.test", "/opt/Evtservice.test.dll"},
    };
    for (const auto& [program, module] : cases) EXPECT_EQ(CEventLog::ModulePath(program), module);
}

TEST(EventLog, RegistersItsSourceOnce) {
    const CRecordedEventLog log;
    CFakeKey root;
    ASSERT_TRUE(CEventLog::Instance().Register(kName, root).IsOk());
    const auto key = SourceKey(root);
    EXPECT_EQ(key->Query(L"EventMessageFile").Value(),
              CValue::FromText(ModuleText(), ValueType::ExpandableText));
    EXPECT_EQ(key->Query(L"TypesSupported").Value(), CValue::FromNumber32(0x1F));
    EXPECT_EQ(root.Faults().writes, 2U);
    ASSERT_TRUE(CEventLog::Instance().Register(kName, root).IsOk());
    EXPECT_EQ(root.Faults().writes, 2U);
}

TEST(EventLog, RewritesWhatIsWrongInItsRegistration) {
    const CRecordedEventLog log;
    const std::pair<const wchar_t*, CValue> wrong[] = {
        {L"EventMessageFile", CValue::FromText(ModuleText())},
        {L"EventMessageFile", CValue::FromText(ModuleText() + L"x", ValueType::ExpandableText)},
        {L"EventMessageFile", CValue::FromNumber32(1)},
        {L"EventMessageFile", {ValueType::ExpandableText, ""}},
        {L"TypesSupported", CValue::FromNumber32(7)},
        {L"TypesSupported", CValue::FromNumber64(31)},
        {L"TypesSupported", {ValueType::Binary, CValue::FromNumber32(31).data}},
        {L"TypesSupported", {ValueType::Number32, "\x1F"}},
    };
    CFakeKey root;
    ASSERT_TRUE(CEventLog::Instance().Register(kName, root).IsOk());
    const auto key = SourceKey(root);
    for (const auto& [name, value] : wrong) {
        const CValue right = key->Query(name).Value();
        ASSERT_EQ(key->Set(name, value), ErrorCode::Success);
        const std::size_t before = root.Faults().writes;
        ASSERT_TRUE(CEventLog::Instance().Register(kName, root).IsOk());
        EXPECT_EQ(key->Query(name).Value(), right);
        EXPECT_EQ(root.Faults().writes, before + 1);
    }
}

TEST(EventLog, ReturnsTheFirstStepOfRegistrationThatFails) {
    const auto fails = [](const char* type, CFakeKey& root) {
        const CStatus status = CEventLog::Instance().Register(kName, root);
        ASSERT_FALSE(status.IsOk());
        EXPECT_STREQ(status.Error()->GetTypeName(), type);
        EXPECT_EQ(status.Error()->GetCode(), 5U);
        // A registry status is kept as it is in an HRESULT.
        const bool isKept = std::string_view(type) == "HRESULT";
        EXPECT_EQ(status.Error()->GetHRESULT(), isKept ? 5 : static_cast<HRESULT>(0x80070005));
    };
    const CRecordedEventLog log;
    CFakeKey create;
    create.Faults().create = ErrorCode::AccessDenied;
    fails("HRESULT", create);
    for (const wchar_t* name : {L"EventMessageFile", L"TypesSupported"}) {
        CFakeKey query;
        query.Faults().query[name] = ErrorCode::AccessDenied;
        fails("System", query);
        CFakeKey set;
        set.Faults().set[name] = ErrorCode::AccessDenied;
        fails("HRESULT", set);
    }
    CFakeKey half;
    half.Faults().set[L"TypesSupported"] = ErrorCode::AccessDenied;
    fails("HRESULT", half);
    EXPECT_TRUE(SourceKey(half)->Query(L"EventMessageFile").IsOk());

    CEventLog::Instance().SetModulePath("/nowhere/module");
    CFakeKey root;
    const CStatus status = CEventLog::Instance().Register(kName, root);
    EXPECT_EQ(status.Error()->GetCode(), 2U);
    EXPECT_EQ(root.Subkeys().Value().size(), 0U);
}

TEST(EventLog, WritesAnErrorWithItsTrimmedInsertsAndItsSource) {
    CRecordedEventLog log;
    const std::uint32_t line = __LINE__ + 1;
    MessageError(message::kFolderUnavailable, {L"/srv/docs\r\n.", L"..."}).Report();
    CStatus().Report();
    const auto entries = log.Take();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].id, 0xC00000C9U);
    EXPECT_EQ(entries[0].severity, EventSeverity::Error);
    EXPECT_THAT(entries[0].strings, testing::ElementsAre(L"/srv/docs", L".."));
    EXPECT_EQ(entries[0].source, "EventLogTest.cpp");
    EXPECT_EQ(entries[0].line, line);
    EXPECT_EQ(entries[0].user, CurrentUserName());
    EXPECT_EQ(entries[0].text.find(L"The folder /srv/docs of the host .. cannot be opened."), 0U);
}

TEST(EventLog, NamesTheSourceOfErrorsAndWarningsOnly) {
    const CTemporaryFolder folder;
    std::string module;
    for (const char* severity : {"Success", "Informational", "Warning", "Error"})
        module += std::string("MessageId=1\nSeverity=") + severity + "\nLanguage=English\ntext\n.\n";
    WriteFile(folder / "module", module);
    CRecordedEventLog log(folder / "module");
    for (std::uint32_t severity = 0; severity < 4; ++severity) MessageError(severity << 30 | 1).Report();
    const auto entries = log.Take();
    ASSERT_EQ(entries.size(), 4U);
    for (std::uint32_t severity = 0; severity < 4; ++severity) {
        EXPECT_EQ(entries[severity].severity, static_cast<EventSeverity>(severity));
        EXPECT_EQ(entries[severity].source, severity < 2 ? "" : "EventLogTest.cpp");
        EXPECT_EQ(entries[severity].line == 0, severity < 2);
    }
}

TEST(EventLog, WritesAnErrorWhoseTextTheModuleLacks) {
    CRecordedEventLog log;
    class CElsewhere final : public CError {
     public:
        using CError::CError;
        std::uint32_t GetCode() const override { return 0; }
        std::uint32_t GetMessageId() const override { return 0xC0001234; }
        std::size_t GetInsertCount() const override { return 2; }
        std::wstring GetInsert(std::size_t index) const override { return index == 0 ? L"a" : L"b"; }
        std::wstring GetText() const override { return L""; }
        const char* GetTypeName() const override { return "Test"; }
    };
    CEventLog::Instance().Report(CElsewhere(std::source_location::current()));
    const auto entries = log.Take();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].text, L"Error message -1073737164: a; b");
}

TEST(EventLog, WritesAMessageWithItsInsertsAsTheyAre) {
    CRecordedEventLog log;
    CEventLog::Instance().ReportMessage(message::kNotFound, {L"host.", L"/a\n.", L"further"});
    CEventLog::Instance().ReportMessage(message::kServiceStarted, {});
    const auto entries = log.Take();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_THAT(entries[0].strings, testing::ElementsAre(L"host.", L"/a\n."));
    EXPECT_EQ(entries[0].source, "");
    EXPECT_EQ(entries[0].line, 0U);
    EXPECT_THAT(entries[1].strings, testing::ElementsAre(L""));
    EXPECT_EQ(entries[1].severity, EventSeverity::Success);
}

}  // namespace
}  // namespace quorbel
