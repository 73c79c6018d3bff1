#include <stdexcept>

#include "LibService/MessageIds.h"
#include "LibService/Status.h"
#include "tests/support/EventRecorder.h"

namespace quorbel {
namespace {

std::vector<std::wstring> InsertsOf(const CStatus& status) {
    std::vector<std::wstring> inserts;
    for (std::size_t i = 0; i < status.Error()->GetInsertCount(); ++i)
        inserts.push_back(status.Error()->GetInsert(i));
    return inserts;
}

TEST(Status, KeepsItsErrorWhenACopyTakesAnother) {
    CStatus first = SystemError(ErrorCode::AccessDenied);
    CStatus second = first;
    EXPECT_EQ(first.Error(), second.Error());
    second = SystemError(ErrorCode::FileNotFound);
    EXPECT_EQ(first.Error()->GetCode(), 5U);
    EXPECT_EQ(second.Error()->GetCode(), 2U);
    second = CStatus();
    EXPECT_TRUE(second.IsOk());
    EXPECT_EQ(second.Text(), L"");
    EXPECT_FALSE(first.IsOk());
}

TEST(Status, TrimsLineEndsAndOneFullStopOffAnInsert) {
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {{L"", L""},
                                                               {L".", L""},
                                                               {L"...", L".."},
                                                               {L"text.\r\n", L"text"},
                                                               {L"\r\n", L""},
                                                               {L"a\r\nb\n.\r", L"ab"},
                                                               {L"text. ", L"text. "},
                                                               {L"\n.\n.\n", L"."}};
    for (const auto& [text, trimmed] : cases) EXPECT_EQ(TrimInsert(text), trimmed);
}

TEST(Status, GivesASystemErrorItsInserts) {
    const CStatus plain = SystemError(ErrorCode::AccessDenied);
    EXPECT_EQ(plain.Error()->GetMessageId(), 0xC0000064U);
    EXPECT_THAT(InsertsOf(plain), testing::ElementsAre(L"5", L"Access is denied."));
    EXPECT_EQ(plain.Text(), L"Access is denied");

    const CStatus extra = SystemError(ErrorCode::AccessDenied, L"C:\\file");
    EXPECT_EQ(extra.Error()->GetMessageId(), 0xC000006AU);
    EXPECT_THAT(InsertsOf(extra), testing::ElementsAre(L"5", L"Access is denied.", L"C:\\file"));

    const CStatus empty = SystemError(ErrorCode::AccessDenied, L"");
    EXPECT_EQ(empty.Error()->GetMessageId(), 0xC000006AU);
    EXPECT_EQ(empty.Error()->GetInsertCount(), 2U);

    const CStatus unknown = SystemError(static_cast<ErrorCode>(0xFFFFFFFE));
    EXPECT_THAT(InsertsOf(unknown), testing::ElementsAre(L"-2", L"Error message -2"));
}

TEST(Status, GivesAnHResultItsInserts) {
    const CStatus known = HResultError(E_FAIL);
    EXPECT_EQ(known.Error()->GetMessageId(), 0xC0000064U);
    EXPECT_EQ(known.Error()->GetCode(), 0x4005U);
    EXPECT_EQ(known.Error()->GetInsert(0), L"0x80004005");
    EXPECT_EQ(known.Error()->GetInsert(1), HResultMessage(E_FAIL));

    const CStatus unknown = HResultError(static_cast<HRESULT>(0x8ABC0001));
    EXPECT_THAT(InsertsOf(unknown), testing::ElementsAre(L"0x8ABC0001", L"HRESULT 0x8ABC0001."));
    EXPECT_EQ(unknown.Text(), L"HRESULT 0x8ABC0001");
}

TEST(Status, ConvertsErrorsToHResults) {
    const CRecordedEventLog log;
    const std::pair<CStatus, std::uint32_t> cases[] = {
        {SystemError(ErrorCode::AccessDenied), 0x80070005},
        {SystemError(ErrorCode::Success), 0},
        {SystemError(static_cast<ErrorCode>(0x80004005)), 0x80004005},
        {SystemError(static_cast<ErrorCode>(0x12345678)), 0x80075678},
        {HResultError(E_FAIL), 0x80004005},
        {HResultError(2), 2},  // a registry status stays as it is
        {MessageError(message::kNotFound), 0},
    };
    for (const auto& [status, expected] : cases)
        EXPECT_EQ(static_cast<std::uint32_t>(status.Error()->GetHRESULT()), expected) << expected;
}

TEST(Status, TakesAsManyInsertsAsTheMessagesTextRefersTo) {
    const CTemporaryFolder folder;
    WriteFile(folder / "module", "MessageId=1\nSeverity=Error\nLanguage=English\n%1 and %3\n.\n");
    const CRecordedEventLog log(folder / "module");
    constexpr std::uint32_t kId = 0xC0000001;
    EXPECT_THAT(InsertsOf(MessageError(kId)), testing::ElementsAre(L"", L"", L""));
    EXPECT_THAT(InsertsOf(MessageError(kId, {L"a", L"b", L"c", L"d"})),
                testing::ElementsAre(L"a", L"b", L"c"));
    EXPECT_EQ(MessageError(kId, {L"a", L"b", L"c"}).Text(), L"a and c");
    EXPECT_EQ(MessageError(0xC0000002, {L"a"}).Error()->GetInsertCount(), 0U);
    EXPECT_EQ(MessageError(0xC0000002, {L"a"}).Text(), L"Error message -1073741822");
}

TEST(Status, HasATextWithoutTheMessageModule) {
    const CRecordedEventLog log("/nowhere/module");
    const CStatus status = AllocationError(100);
    EXPECT_EQ(status.Error()->GetInsertCount(), 0U);
    EXPECT_EQ(status.Text(), L"Error message -1073741723");
    EXPECT_EQ(status.Error()->GetMessageId(), 0xC0000065U);
    const CStatus exception = MessageError(message::kStandardException, std::runtime_error("caf\xC3\xA9"));
    EXPECT_THAT(InsertsOf(exception), testing::ElementsAre(L"caf\u00e9"));
}

TEST(Status, NamesTheLineThatRaisedIt) {
    const CStatus status = HResultError(E_FAIL);
    EXPECT_EQ(status.Error()->SourceLine(), static_cast<std::uint32_t>(__LINE__ - 1));
    EXPECT_THAT(status.Error()->SourceFile(), testing::EndsWith("StatusTest.cpp"));
}

}  // namespace
}  // namespace quorbel
