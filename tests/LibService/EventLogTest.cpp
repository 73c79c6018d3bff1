#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"
#include "platform/Text.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/FaultyRegistry.h"

namespace quorbel {
namespace {

constexpr std::wstring_view kName = L"Quorbel HTTP Service";
const std::wstring kSourceKey =
    L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Quorbel HTTP Service\\Quorbel HTTP Service";

std::wstring ModuleText() {
    return FromUtf8(std::string(QUORBEL_PROGRAMS) + "/EvtQBHTTPService.dll");
}

/// An event log whose source is not registered yet, and a registry of its own that fails on demand.
class EventLogRegistration : public testing::Test {
 protected:
    CStatus Register() { return CEventLog::Instance().Register(kName, *root); }
    std::unique_ptr<IKey> SourceKey() { return root->Create(kSourceKey).Value(); }
    int Writes() { return registry.Faults().Calls(RegistryOperation::Set); }

    const CRecordedEventLog log;
    const CTemporaryFolder folder;
    CFaultyRegistry registry{OpenSqliteRegistry(folder.Path()).Value()};
    const std::unique_ptr<IKey> root = registry.LocalMachine();
};

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

TEST_F(EventLogRegistration, IsWrittenOnce) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(Register().IsOk());
        const auto key = SourceKey();
        EXPECT_EQ(key->Query(L"EventMessageFile").Value(),
                  CValue::FromText(ModuleText(), ValueType::ExpandableText));
        EXPECT_EQ(key->Query(L"TypesSupported").Value(), CValue::FromNumber32(0x1F));
        EXPECT_EQ(Writes(), 2);
    }
}

TEST_F(EventLogRegistration, IsRewrittenWhereItIsWrong) {
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
    ASSERT_TRUE(Register().IsOk());
    const auto key = SourceKey();
    for (const auto& [name, value] : wrong) {
        const CValue right = key->Query(name).Value();
        ASSERT_EQ(key->Set(name, value), ErrorCode::Success);
        const int before = Writes();
        ASSERT_TRUE(Register().IsOk());
        EXPECT_EQ(key->Query(name).Value(), right);
        EXPECT_EQ(Writes(), before + 1);
    }
}

TEST_F(EventLogRegistration, EndsAtItsFirstStepThatFails) {
    // A failed write is told as the registry's own number, kept as it is in an HRESULT.
    const std::tuple<RegistryOperation, int, const char*, HRESULT> cases[] = {
        {RegistryOperation::Create, 1, "HRESULT", 5},
        {RegistryOperation::Query, 1, "System", static_cast<HRESULT>(0x80070005)},
        {RegistryOperation::Query, 2, "System", static_cast<HRESULT>(0x80070005)},
        {RegistryOperation::Set, 1, "HRESULT", 5},
        {RegistryOperation::Set, 2, "HRESULT", 5},
    };
    for (const auto& [operation, call, type, result] : cases) {
        Ignore(root->DeleteTree(L"SYSTEM"));
        registry.Faults().Fail(operation, ErrorCode::AccessDenied, call);
        const CStatus status = Register();
        registry.Faults().FailNothing();
        ASSERT_FALSE(status.IsOk());
        EXPECT_STREQ(status.Error()->GetTypeName(), type);
        EXPECT_EQ(status.Error()->GetCode(), 5U);
        EXPECT_EQ(status.Error()->GetHRESULT(), result);
        const bool isHalf = SourceKey()->Query(L"EventMessageFile").IsOk();
        EXPECT_EQ(isHalf, call == 2) << "the first value is written when the second fails";
    }
    ASSERT_EQ(root->DeleteTree(L"SYSTEM"), ErrorCode::Success);
    CEventLog::Instance().SetModulePath("/nowhere/module");
    EXPECT_EQ(Register().Error()->GetCode(), 2U);
    EXPECT_EQ(root->Subkeys().Value().size(), 0U);
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
