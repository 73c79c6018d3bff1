#include <fstream>

#include "LibService/MessageIds.h"
#include "LibService/trace/TraceText.h"
#include "platform/messages/MessageModule.h"

namespace quorbel {
namespace {

std::shared_ptr<const CMessageModule> Load(const char* name) {
    const auto module = CMessageModule::Load(std::filesystem::path(QUORBEL_PROGRAMS) / name);
    EXPECT_TRUE(module.IsOk()) << name;
    return module.IsOk() ? module.Value() : nullptr;
}

const std::map<std::uint32_t, std::size_t> kEvents{
    {message::kServiceStarted, 1},
    {message::kServiceStopping, 1},
    {message::kSystemError, 2},
    {message::kAllocationFailed, 1},
    {message::kUnhandledFault, 1},
    {message::kCaughtException, 1},
    {message::kUnknownObjectKey, 1},
    {message::kSystemErrorWithText, 3},
    {message::kFolderUnavailable, 2},
    {message::kLocationWithoutHandler, 1},
    {message::kUnknownHandler, 2},
    {message::kStandardException, 1},
    {message::kNotFound, 2},
    {message::kDataSourceUnavailable, 2},
    {message::kCommandFailed, 3},
    {message::kSearchUnavailable, 1},
    {message::kSearchHelperUnavailable, 1},
    {message::kSearchSourceUnavailable, 2},
    {message::kSearchDescriptionRefused, 2},
    {message::kSearchFailed, 3},
    {message::kSearchIndexStale, 1},
    {message::kConfigurationMissing, 0},
    {message::kAuthenticatorDataMalformed, 1},
    {message::kPasskeyUserGone, 1},
    {message::kCredentialUnknown, 1},
    {message::kCredentialNotOfUser, 1},
    {message::kChallengeExpired, 1},
    {message::kChallengeUnknown, 0},
    {message::kRegistrationForOtherSite, 1},
    {message::kUserNotVerified, 2},
    {message::kAttestationFormatUnsupported, 2},
    {message::kAttestationWithoutCertificate, 1},
    {message::kAttestationCheckFailed, 2},
    {message::kChallengeMissing, 1},
    {message::kChallengeMismatch, 1},
    {message::kSignInForOtherSite, 1},
    // Without a name so far.
    {0x8000006B, 1},
};

TEST(EventTexts, ShowAsManyInsertsAsAreReportedOnOneLine) {
    const auto module = Load("EvtQBHTTPService.dll");
    ASSERT_NE(module, nullptr);
    const std::vector<std::wstring> inserts{L"<first>", L"<second>", L"<third>"};
    std::vector<std::uint32_t> known;
    for (const auto& [id, count] : kEvents) {
        known.push_back(id);
        EXPECT_EQ(module->InsertCount(id), count) << std::hex << id;
        const std::wstring text = module->Format(id, inserts).value_or(L"");
        for (std::size_t i = 0; i < inserts.size(); ++i)
            EXPECT_EQ(text.find(inserts[i]) != std::wstring::npos, i < count) << std::hex << id;
        // Line ends inside a text would be lost where it becomes a status line.
        EXPECT_EQ(text.find(L'\n'), text.size() - 1) << std::hex << id;
    }
    EXPECT_EQ(module->Identifiers(), known);
}

TEST(TraceTexts, TakeAsManyInsertsAsAreTraced) {
    const std::map<std::uint32_t, std::size_t> expected{
        {trace::kServiceStart, 0},     {trace::kRunRoutine, 0},     {trace::kServiceStop, 0},
        {trace::kMainThreadFailed, 0}, {trace::kListenerOpened, 1}, {trace::kListenerFailed, 1},
        {trace::kListenersStopped, 0}, {trace::kRequest, 1},        {trace::kMethodRefused, 2},
    };
    const auto module = Load("TrcQBHTTPService.dll");
    ASSERT_NE(module, nullptr);
    const CTraceTexts texts(*module);
    std::vector<std::uint32_t> known;
    for (const auto& [id, count] : expected) {
        known.push_back(id);
        const CTraceText& text = texts.Find(id);
        EXPECT_FALSE(text.Render({}).empty() && count == 0) << std::hex << id;
        ASSERT_EQ(text.Inserts().size(), count) << std::hex << id;
        for (const CTraceInsert& insert : text.Inserts()) EXPECT_EQ(insert.kind, CTraceInsert::Kind::String);
    }
    EXPECT_EQ(module->Identifiers(), known);
}

/// The identifiers that the header lists for trace records.
std::vector<std::uint32_t> TracedIdentifiers() {
    std::ifstream header(QUORBEL_SOURCES "/LibService/MessageIds.h");
    std::vector<std::uint32_t> identifiers;
    bool isTrace = false;
    for (std::string line; std::getline(header, line);) {
        isTrace = line.starts_with("namespace trace") || (isTrace && !line.starts_with("}"));
        const std::size_t number = line.find("0x");
        if (isTrace && number != line.npos)
            identifiers.push_back(static_cast<std::uint32_t>(std::stoul(line.substr(number), nullptr, 16)));
    }
    return identifiers;
}

TEST(TraceTexts, ThereIsOneForEveryIdentifierThatIsTraced) {
    const auto module = Load("TrcQBHTTPService.dll");
    ASSERT_NE(module, nullptr);
    const auto traced = TracedIdentifiers();
    EXPECT_GE(traced.size(), 9U);
    for (const std::uint32_t id : traced) EXPECT_TRUE(module->Find(id).has_value()) << std::hex << id;
}

}  // namespace
}  // namespace quorbel
