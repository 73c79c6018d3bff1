#include <bit>

#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"
#include "config/HostConfiguration.h"
#include "platform/Text.h"
#include "tests/config/ConfigurationFixture.h"

namespace quorbel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr std::wstring_view kHost = L"Hosts\\www.example.com";
constexpr std::wstring_view kShared = L"Applications";
constexpr std::wstring_view kApplication = L"Applications\\Shop";

/// Translates the folders of one drive, and says which paths it was asked for.
class CFakeArchive final : public CWithoutDispatch<CComObject<IArchiveFileSystem>> {
 public:
    HRESULT GetSystem(IArchiveSystem**) override { return E_NOTIMPL; }
    HRESULT OpenFile(const wchar_t*, IArchiveFile**) override { return E_NOTIMPL; }
    HRESULT OpenFolder(const wchar_t* path, IArchiveFile** folder) override {
        asked.emplace_back(path);
        if (!asked.back().starts_with(L"D:")) return HResultFromWin32(ToNumber(ErrorCode::FileNotFound));
        CComPtr<IArchiveFile> object(new CFolder(L"\\\\?\\/drive" + asked.back().substr(2), hasPaths));
        return object->QueryInterface(IArchiveFile::kId, reinterpret_cast<void**>(folder));
    }

    std::vector<std::wstring> asked;
    bool hasPaths = true;

 private:
    class CFolder final : public CComObject<IArchiveFile> {
     public:
        CFolder(std::wstring path, bool hasPath) : m_path(std::move(path)), m_hasPath(hasPath) {}
        HRESULT GetPath(std::wstring* path) override {
            *path = m_path;
            return m_hasPath ? S_OK : E_FAIL;
        }

     private:
        const std::wstring m_path;
        const bool m_hasPath;
    };
};

class HostConfigurationTest : public ConfigurationTest {
 protected:
    HostConfigurationTest() {
        Create(kHost);
        CEventLog::Instance().SetModulePath(QUORBEL_PROGRAMS "/EvtQBHTTPService.dll");
    }
    ~HostConfigurationTest() override { CEventLog::Instance().SetModulePath({}); }

    CStatus Merge() {
        configuration = {};
        auto host = root.OpenKey(kHost, KeyAccess::ReadWrite);
        EXPECT_TRUE(host.IsOk());
        auto applications = root.OpenKey(kShared, KeyAccess::Read);
        return MergeHostConfiguration(L"www.example.com", host.Value(),
                                      applications.IsOk() ? std::move(applications).Value() : CRegistryKey(),
                                      *archive.Get(), configuration);
    }
    void MergeWell() {
        const CStatus status = Merge();
        ASSERT_TRUE(status.IsOk()) << ToUtf8(status.Text());
    }
    void UseApplication(std::wstring_view name = L"Shop") { Set(kHost, L"Application", name); }
    std::wstring Named(const std::wstring& name) const {
        const auto found = configuration.namedValues.find(name);
        return found == configuration.namedValues.end() ? L"(none)" : found->second;
    }

    CComPtr<CFakeArchive> archive{new CFakeArchive};
    HostConfiguration configuration;
};

TEST_F(HostConfigurationTest, HasItsDefaultsWithoutAnyValue) {
    MergeWell();
    EXPECT_EQ(configuration.protocol, L"https");
    EXPECT_EQ(configuration.port, L"443");
    EXPECT_EQ(configuration.rangeCap, 1'048'576U);
    EXPECT_THAT(configuration.accessRoots, IsEmpty());
    EXPECT_THAT(configuration.directoryMappings, IsEmpty());
    EXPECT_THAT(configuration.webApplications, IsEmpty());
    EXPECT_THAT(configuration.namedValues, IsEmpty());
    EXPECT_THAT(configuration.locations, IsEmpty());
}

TEST_F(HostConfigurationTest, LetsTheHostWinOverItsApplicationAndThatOverTheSharedValues) {
    UseApplication();
    Create(kApplication);
    const std::pair<const wchar_t*, std::function<std::wstring(HostConfiguration&)>> values[] = {
        {L"Protocol", [](auto& merged) { return merged.protocol; }},
        {L"Port", [](auto& merged) { return merged.port; }},
        {L"Admin Root", [](auto& merged) { return merged.accessRoots[AccessLevel::Admin]; }},
        {L"User Root", [](auto& merged) { return merged.accessRoots[AccessLevel::User]; }},
        {L"Anon Root", [](auto& merged) { return merged.accessRoots[AccessLevel::Anon]; }},
        {L"/docs", [](auto& merged) { return merged.directoryMappings[L"/docs"]; }},
        {L"/files", [](auto& merged) { return merged.namedValues[L"Directory$files"]; }},
        {L"User/shop", [](auto& merged) { return merged.webApplications[AccessLevel::User][L"/shop"]; }},
        {L"Named", [](auto& merged) { return merged.namedValues[L"Registry$Named"]; }},
    };
    const std::wstring_view layers[] = {kShared, kApplication, kHost};
    // Each bit stands for a layer that has the values; the highest of them must win.
    for (unsigned bits = 1; bits < 8; ++bits) {
        for (unsigned layer = 0; layer < 3; ++layer) {
            auto key = root.CreateKey(layers[layer]).Value();
            for (const auto& [name, merged] : values) {
                if ((bits >> layer & 1) != 0) {
                    Set(layers[layer], name, L"/layer" + std::to_wstring(layer) + L"/x");
                } else {
                    Ignore(key.Store().DeleteValue(name));
                }
            }
        }
        MergeWell();
        const std::wstring winner = L"layer" + std::to_wstring(std::bit_width(bits) - 1);
        for (const auto& [name, merged] : values) {
            EXPECT_NE(merged(configuration).find(winner), std::wstring::npos) << ToUtf8(name) << " " << bits;
        }
    }
}

TEST_F(HostConfigurationTest, ReadsTheApplicationFromTheHostAloneAndAsItIsWritten) {
    ASSERT_EQ(::setenv("QUORBEL_TEST_SHOP", "Shop", 1), 0);
    Set(kShared, L"Layer", L"shared");
    Set(kShared, L"Application", L"Shop");
    Set(kApplication, L"Layer", L"application");
    Set(L"Applications\\%QUORBEL_TEST_SHOP%", L"Layer", L"as written");
    MergeWell();
    EXPECT_EQ(Named(L"Registry$Layer"), L"shared");
    EXPECT_EQ(Named(L"Registry$Application"), L"Shop");
    const std::pair<CValue, std::wstring_view> cases[] = {
        {CValue::FromText(L"SHOP"), L"application"},
        {CValue::FromText(L"Shop", ValueType::ExpandableText), L"application"},
        {CValue::FromText(L"%QUORBEL_TEST_SHOP%", ValueType::ExpandableText), L"as written"},
        {CValue::FromText(L"Shop2"), L"shared"},
        {CValue::FromText(L""), L"shared"},
        {CValue::FromText(std::wstring(300, L'x')), L"shared"},
        {CValue::FromTexts({L"Shop"}), L"shared"},
        {CValue::FromNumber32(1), L"shared"},
        {{ValueType::Binary, ToUtf16Bytes(L"Shop")}, L"shared"},
    };
    for (const auto& [application, layer] : cases) {
        Set(kHost, L"Application", application);
        MergeWell();
        EXPECT_EQ(Named(L"Registry$Layer"), layer) << ToUtf8(application.AsText());
    }
}

TEST_F(HostConfigurationTest, TakesNumbersAndTextsForThePortAndNumbersForTheRange) {
    const std::tuple<CValue, std::wstring_view, std::uint32_t> cases[] = {
        {CValue::FromText(L"8443"), L"8443", 1'048'576},
        {CValue::FromNumber32(8443), L"8443", 8443},
        {CValue::FromNumber32(0xFFFFFFFF), L"4294967295", 0xFFFFFFFF},
        {CValue::FromText(L""), L"443", 1'048'576},
        {CValue::FromText(L"", ValueType::ExpandableText), L"443", 1'048'576},
        {CValue::FromNumber64(8443), L"443", 1'048'576},
        {CValue::FromTexts({L"8443"}), L"443", 1'048'576},
        {{ValueType::Binary, "8443"}, L"443", 1'048'576},
        {{ValueType::Number32, "84"}, L"443", 1'048'576},
    };
    for (const auto& [value, port, range] : cases) {
        Set(kHost, L"PORT", value);
        Set(kHost, L"Default Range", value);
        MergeWell();
        EXPECT_EQ(configuration.port, port);
        EXPECT_EQ(configuration.rangeCap, range);
    }
}

TEST_F(HostConfigurationTest, PassesOverEmptyTextsOfProtocolPortAndNamedValues) {
    for (const wchar_t* name : {L"Protocol", L"Port", L"Connection"}) {
        Set(kShared, name, L"shared");
        Set(kHost, name, L"");
    }
    Set(kHost, L"Nothing", L"");
    MergeWell();
    EXPECT_EQ(configuration.protocol, L"shared");
    EXPECT_EQ(configuration.port, L"shared");
    EXPECT_THAT(configuration.namedValues, ElementsAre(Pair(L"Registry$Connection", L"shared")));
}

TEST_F(HostConfigurationTest, RecognisesItsNamesWithoutRegardToCase) {
    Set(kHost, L"pROTOCOL", L"http");
    Set(kHost, L"pORT", L"80");
    Set(kHost, L"dEFAULT rANGE", CValue::FromNumber32(7));
    Set(kHost, L"aDMIN rOOT", L"/admin");
    Set(kHost, L"USER ROOT", L"/user");
    Set(kHost, L"anon root", L"/anon");
    Set(kHost, L"aDMIN/One", L"/one/x");
    MergeWell();
    EXPECT_EQ(configuration.protocol, L"http");
    EXPECT_EQ(configuration.port, L"80");
    EXPECT_EQ(configuration.rangeCap, 7U);
    EXPECT_THAT(configuration.accessRoots,
                ElementsAre(Pair(AccessLevel::Anon, L"/anon"), Pair(AccessLevel::User, L"/user"),
                            Pair(AccessLevel::Admin, L"/admin")));
    EXPECT_THAT(configuration.webApplications,
                ElementsAre(Pair(AccessLevel::Admin, ElementsAre(Pair(L"/One", L"\\one")))));
    EXPECT_THAT(configuration.namedValues, IsEmpty());
}

TEST_F(HostConfigurationTest, PublishesEveryOtherValueByName) {
    UseApplication(L"Nowhere");
    Set(kHost, L"Text", L" a text ");
    Set(kHost, L"Number", CValue::FromNumber32(0xFFFFFFFF));
    Set(kHost, L"Cache", CValue::FromNumber64(5));
    Set(kHost, L"", L"the default value");
    Set(kHost, L"Default Range", L"of another type");
    MergeWell();
    EXPECT_THAT(
        configuration.namedValues,
        ElementsAre(Pair(L"Registry$", L"the default value"), Pair(L"Registry$Application", L"Nowhere"),
                    Pair(L"Registry$Cache", L"5"), Pair(L"Registry$Default Range", L"of another type"),
                    Pair(L"Registry$Number", L"4294967295"), Pair(L"Registry$Text", L" a text ")));
}

TEST_F(HostConfigurationTest, TakesTheFolderOfAWebApplicationsFile) {
    const std::tuple<std::wstring_view, std::wstring_view, AccessLevel, std::wstring_view, std::wstring_view>
        cases[] = {{L"Admin/a", L"C:\\web\\a\\index.html", AccessLevel::Admin, L"/a", L"C:\\web\\a"},
                   {L"user/b", L"/srv/web/b/index.html", AccessLevel::User, L"/b", L"\\srv\\web\\b"},
                   {L"ANON/c", L"C:\\web/c\\", AccessLevel::Anon, L"/c", L"C:\\web\\c"},
                   {L"User/d/e", L"/srv/d/x", AccessLevel::User, L"/d/e", L"\\srv\\d"},
                   {L"User/Case", L"/srv/Case/x", AccessLevel::User, L"/Case", L"\\srv\\Case"},
                   {L"User/", L"/srv/f/x", AccessLevel::User, L"/", L"\\srv\\f"}};
    for (const auto& [name, value, level, prefix, webFolder] : cases) Set(kHost, name, value);
    for (const wchar_t* ignored : {L"Guest/a", L" User/a", L"Users/a", L"User /a", L"User Root/a"}) {
        Set(kHost, ignored, L"/srv/ignored/x");
    }
    Set(kHost, L"User/nofolder", L"index.html");
    MergeWell();
    std::size_t count = 0;
    for (const auto& [level, applications] : configuration.webApplications) count += applications.size();
    EXPECT_EQ(count, std::size(cases));
    for (const auto& [name, value, level, prefix, webFolder] : cases) {
        EXPECT_EQ(configuration.webApplications[level][std::wstring(prefix)], webFolder) << ToUtf8(name);
    }
    EXPECT_THAT(configuration.namedValues, IsEmpty());
    EXPECT_THAT(configuration.directoryMappings, IsEmpty());
}

TEST_F(HostConfigurationTest, ResolvesTheDirectoryMappingsThatWin) {
    ASSERT_EQ(::setenv("QUORBEL_TEST_FOLDER", "D:\\here", 1), 0);
    Set(kShared, L"/a", L"Z:\\never asked for");
    const std::tuple<std::wstring_view, std::wstring_view, std::wstring_view> cases[] = {
        {L"/a", L"/srv/docs", L"0/srv/docs"},
        {L"/b", L"\\share\\docs", L"0\\share\\docs"},
        {L"/c", L"web/docs", L"0/web/docs"},
        {L"/d", L"D:\\Web\\Docs", L"\\\\?\\/drive\\Web\\Docs"},
        {L"/e", L"", L"0/"},
        {L"/f", L"D", L"0/D"},
        {L"/g", L"D:", L"\\\\?\\/drive"},
        {L"/h", L"DD:", L"0/DD:"},
        {L"/i", L"\\\\?\\D:\\docs", L"0\\\\?\\D:\\docs"},
        {L"/", L"/root", L"0/root"},
        {L"/sub/docs", L"docs:x", L"0/docs:x"},
        {L"/x", L"%QUORBEL_TEST_FOLDER%\\docs", L"\\\\?\\/drive\\here\\docs"},
    };
    for (const auto& [name, value, resolved] : cases)
        Set(kHost, name, CValue::FromText(value, ValueType::ExpandableText));
    MergeWell();
    EXPECT_EQ(configuration.directoryMappings.size(), std::size(cases));
    EXPECT_EQ(configuration.namedValues.size(), std::size(cases));
    for (const auto& [name, value, resolved] : cases) {
        EXPECT_EQ(configuration.directoryMappings[std::wstring(name)], resolved) << ToUtf8(name);
        EXPECT_EQ(Named(L"Directory$" + std::wstring(name.substr(1))), resolved) << ToUtf8(name);
    }
    EXPECT_THAT(archive->asked, UnorderedElementsAre(L"D:\\Web\\Docs", L"D:", L"D:\\here\\docs"));
}

TEST_F(HostConfigurationTest, FailsForAMappingThatTheArchiveCannotTranslate) {
    const auto expectFailure = [&](const wchar_t* value) {
        Set(kHost, L"/docs", value);
        const CStatus status = Merge();
        ASSERT_FALSE(status.IsOk());
        EXPECT_EQ(status.Error()->GetMessageId(), message::kFolderUnavailable);
        ASSERT_EQ(status.Error()->GetInsertCount(), 2U);
        EXPECT_EQ(status.Error()->GetInsert(0), value);
        EXPECT_EQ(status.Error()->GetInsert(1), L"www.example.com");
    };
    expectFailure(L"Z:\\docs");
    expectFailure(L"::");
    archive->hasPaths = false;
    expectFailure(L"D:\\docs");
}

TEST_F(HostConfigurationTest, TakesALocationWholeFromTheLayerThatWins) {
    UseApplication();
    Set(L"Applications\\Locations\\/LOGIN", L"Handler", L"of another name");
    Set(L"Applications\\Shop\\Locations\\/login", L"Handler", L"Authenticate");
    Set(L"Applications\\Shop\\Locations\\/login", L"Session Timeout", CValue::FromNumber32(30));
    Set(std::wstring(kHost) + L"\\Locations\\/login", L"handler", L"System");
    MergeWell();
    EXPECT_THAT(configuration.locations,
                ElementsAre(Pair(L"/LOGIN", ElementsAre(Pair(L"Handler", L"of another name"))),
                            Pair(L"/login", ElementsAre(Pair(L"handler", L"System")))));
    // An empty one counts too.
    ASSERT_EQ(root.CreateKey(kHost).Value().Store().DeleteTree(L"Locations\\/login"), ErrorCode::Success);
    Create(std::wstring(kHost) + L"\\Locations\\/login");
    MergeWell();
    EXPECT_THAT(configuration.locations[L"/login"], IsEmpty());
}

TEST_F(HostConfigurationTest, KeepsALocationsValuesAsTextsUnderTheirExactNames) {
    const std::wstring location = std::wstring(kHost) + L"\\Locations\\/Login/\u00e4";
    Set(location, L"hANDLER", L"x");
    Set(location, L"Empty", L"");
    Set(location, L"Port", CValue::FromNumber32(4'000'000'000));
    Set(location, L"Long", CValue::FromNumber64(18'446'744'073'709'551'615U));
    Set(location, L"/slash", L"y");
    Set(location + L"\\Deeper", L"Handler", L"not a location");
    MergeWell();
    EXPECT_THAT(configuration.locations,
                ElementsAre(Pair(L"/Login/\u00e4",
                                 ElementsAre(Pair(L"/slash", L"y"), Pair(L"Empty", L""),
                                             Pair(L"Long", L"18446744073709551615"),
                                             Pair(L"Port", L"4000000000"), Pair(L"hANDLER", L"x")))));
    EXPECT_EQ(configuration.port, L"443");
}

TEST_F(HostConfigurationTest, WithstandsATreeOfWrongTypesEverywhere) {
    using namespace std::literals;
    const CValue wrong[] = {{ValueType::None, ""},
                            {ValueType::None, "some bytes"},
                            {ValueType::Text, ""},
                            {ValueType::Text, "\xFF"},
                            {ValueType::Text, "\x00\xD8\x00"s},
                            {ValueType::Text, std::string(100'001, '\xD8')},
                            {ValueType::ExpandableText, "%"},
                            {ValueType::ExpandableText, ToUtf16Bytes(L"%%%")},
                            {ValueType::Binary, std::string(70'000, '\0')},
                            {ValueType::Number32, ""},
                            {ValueType::Number32, "12345"},
                            {ValueType::Number32BigEndian, "1234"},
                            {ValueType::Link, "x"},
                            {ValueType::MultiText, "x"},
                            {ValueType::Number64, "1234"},
                            {ValueType::Number64, "12345678"},
                            {static_cast<ValueType>(0xFFFFFFFF), "12345678"}};
    const wchar_t* names[] = {
        L"Protocol", L"Port",  L"Default Range", L"Admin Root", L"User Root", L"Anon Root",
        L"/docs",    L"/",     L"User/app",      L"Other/app",  L"",          L"Application",
        L"Handler",  L"Named", L"a/b/c"};
    for (const CValue& value : wrong) {
        auto transaction = registry.Begin().Value();
        for (const auto layer : {kShared, kApplication, kHost}) {
            for (const wchar_t* name : names) {
                Set(layer, name, value);
                Set(std::wstring(layer) + L"\\Locations\\/x", name, value);
            }
        }
        UseApplication();
        ASSERT_EQ(transaction->Commit(), ErrorCode::Success);
        transaction = nullptr;
        MergeWell();
        EXPECT_EQ(configuration.rangeCap, 1'048'576U);
        EXPECT_EQ(Named(L"Registry$Application"), L"Shop");
        const bool isText = value.type == ValueType::Text || value.type == ValueType::ExpandableText;
        EXPECT_EQ(configuration.accessRoots.size(), isText ? 3U : 0U);
        EXPECT_EQ(configuration.directoryMappings.size(), isText ? 2U : 0U);
        if (isText) continue;
        EXPECT_EQ(configuration.port, L"443");
        EXPECT_EQ(configuration.protocol, L"https");
    }
}

TEST_F(HostConfigurationTest, FailsWithTheStoresErrorWhereverAReadFails) {
    UseApplication();
    for (const auto layer : {kShared, kApplication, kHost}) {
        Set(layer, L"Named", L"value");
        Set(std::wstring(layer) + L"\\Locations\\/" + std::wstring(layer.substr(layer.rfind(L'\\') + 1)),
            L"Handler", L"x");
    }
    MergeWell();
    ASSERT_EQ(configuration.locations.size(), 3U);
    // Three layers are each copied and enumerated, with a location each whose values are enumerated too.
    const std::tuple<RegistryOperation, int, std::wstring> cases[] = {
        {RegistryOperation::Duplicate, 3, L"*"},
        {RegistryOperation::Values, 6, L"*"},
        {RegistryOperation::Subkeys, 3, L"*"},
        {RegistryOperation::Open, 1, L"Applications\\Locations\\/Applications"},
        {RegistryOperation::Open, 1, L"Applications\\Shop\\Locations\\/Shop"},
        {RegistryOperation::Open, 1, std::wstring(kHost) + L"\\Locations\\/www.example.com"},
    };
    for (const auto& [operation, calls, path] : cases) {
        const int before = registry.Faults().Calls(operation);
        MergeWell();
        if (path == L"*") {
            EXPECT_EQ(registry.Faults().Calls(operation) - before, calls);
        }
        for (int call = 1; call <= calls; ++call) {
            registry.Faults().Fail(operation, ErrorCode::RegistryIoFailed, call, path);
            const CStatus status = Merge();
            registry.Faults().FailNothing();
            ASSERT_FALSE(status.IsOk()) << ToUtf8(path) << call;
            EXPECT_EQ(status.Error()->GetMessageId(), message::kSystemError);
            EXPECT_EQ(status.Error()->GetCode(), ToNumber(ErrorCode::RegistryIoFailed));
        }
    }
    MergeWell();
}

TEST_F(HostConfigurationTest, GoesWithoutWhatCannotBeOpenedAtTheFirstStep) {
    UseApplication();
    Set(kApplication, L"Layer", L"application");
    Set(std::wstring(kHost) + L"\\Locations\\/x", L"Handler", L"x");
    registry.Faults().Fail(RegistryOperation::Open, ErrorCode::AccessDenied, 0, std::wstring(kApplication));
    registry.Faults().Fail(RegistryOperation::Open, ErrorCode::AccessDenied, 0,
                           std::wstring(kHost) + L"\\Locations");
    MergeWell();
    EXPECT_EQ(Named(L"Registry$Layer"), L"(none)");
    EXPECT_THAT(configuration.locations, IsEmpty());
}

}  // namespace
}  // namespace quorbel
