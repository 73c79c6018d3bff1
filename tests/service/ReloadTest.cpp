#include "LibService/MessageIds.h"
#include "components/archive/ArchiveFileSystem.h"
#include "tests/support/service/ServiceFixture.h"
#include "tests/support/service/Subprocess.h"
#include "tests/support/service/TestHandlers.h"

namespace quorbel {
namespace {

constexpr char kHostsPath[] = "HKLM\\Software\\Quorbel\\Quorbel HTTP Service\\Hosts\\";

/// An archive whose version cannot be had.
class CBrokenArchive final : public CWithoutDispatch<CComObject<IArchiveFileSystem>> {
 public:
    HRESULT GetSystem(IArchiveSystem**) override { return E_FAIL; }
    HRESULT OpenFile(const wchar_t*, IArchiveFile**) override { return E_NOTIMPL; }
    HRESULT OpenFolder(const wchar_t*, IArchiveFile**) override { return E_NOTIMPL; }
};

class CReloadTest : public CServiceFixture {
 protected:
    CReloadTest() {
        RegisterTestHandlers();
        WriteFile(Path("root/values.GET.sql"), "");
        WriteFile(Path("root/.GET.txt"), "home");
    }
    std::uint64_t Built() const { return m_service->GetCounters().built; }
    std::uint64_t Updated() const { return m_service->GetCounters().updated; }
    std::uint64_t Closed() const { return m_service->GetCounters().closed; }

    /// True when a host answers there with its home page.
    static bool Serves(int port, const char* address = "127.0.0.1") {
        CHttpConnection connection(port, address);
        const auto reply = connection.IsConnected() ? connection.Request("GET", "/") : std::nullopt;
        return reply && reply->body == "home";
    }
    /// Sets a text value of a host from another process.
    void SetFromOutside(const std::string& host, const std::string& name, const std::string& text) {
        ASSERT_EQ(RunProgram("qbctl",
                             {"reg", "add", kHostsPath + host, "/v", name, "/t", "REG_SZ", "/d", text, "/f"},
                             {{"QUORBEL_ROOT", m_folder.Path().string()}}),
                  0);
    }
    /// Waits for a pass over the hosts that begins after this call: a host of its own is changed and seen
    /// updated.
    void PassOnce() {
        const std::uint64_t before = Updated();
        SetText(L"127.0.0.99", L"Beat", std::to_wstring(++m_beat));
        WaitUntil([&] { return Updated() > before; }, "the pass");
    }
    /// Replaces a host's key by another of its name, in one transaction.
    void ReplaceHost(const Values& values) {
        auto transaction = m_registry->Begin().Value();
        DeleteHost(kHost);
        const auto key = HostKey(kHost);
        for (const auto& [name, value] : values) ASSERT_EQ(key->Set(name, value), ErrorCode::Success);
        ASSERT_EQ(transaction->Commit(), ErrorCode::Success);
    }
    Values PlainHost(int port) {
        return {{L"Protocol", CValue::FromText(L"http")},
                {L"Port", CValue::FromText(std::to_wstring(port))},
                {L"User Root", CValue::FromText(Folder("root"))}};
    }
    static std::function<bool(const CHttpReply&)> Shows(const char* text) {
        return [text](const CHttpReply& reply) { return reply.body.find(text) != std::string::npos; };
    }
    void AddBeatHost() {
        AddHost(L"127.0.0.99", FreePort(), {{L"User Root", CValue::FromText(Folder("root"))}});
    }

 private:
    int m_beat = 0;
};

TEST_F(CReloadTest, AChangedValueRebuildsOneOfAThousandHostsAndKeepsItsConnection) {
    constexpr int kHosts = 1000;
    const int port = FreePort();
    const Values root{{L"User Root", CValue::FromText(Folder("root"))}};
    for (int i = 0; i < kHosts; ++i) {
        AddHost(L"127.1." + std::to_wstring(i / 250) + L"." + std::to_wstring(i % 250 + 1), port, root);
    }
    Start(kHosts);
    CHttpConnection connection(port, "127.1.2.7");
    ASSERT_EQ(connection.Request("GET", "/values")->body, "SQL values.GET.sql\nuser \n");

    SetFromOutside("127.1.2.7", "Colour", "blue");
    WaitUntil([&] { return Updated() == 1; }, "the update");
    EXPECT_EQ(connection.Request("GET", "/values")->body, "SQL values.GET.sql\nuser \nRegistry$Colour=blue\n")
        << "on the connection that was open before";
    EXPECT_EQ(Built(), kHosts);
    EXPECT_EQ(Closed(), 0u);
    EXPECT_EQ(CHttpConnection(port, "127.1.3.9").Request("GET", "/values")->body,
              "SQL values.GET.sql\nuser \n");
    EXPECT_TRUE(Stop().IsOk());
    EXPECT_EQ(Updated(), 1u);
    EXPECT_FALSE(CHttpConnection(port, "127.1.2.7").IsConnected());
}

TEST_F(CReloadTest, ValuesWrittenDuringThePauseGiveOneRebuild) {
    const int port = AddDefaultHost();
    AddBeatHost();
    Start(2);
    PassOnce();
    const std::uint64_t before = Updated();
    m_clock.RunFreely(false);
    ASSERT_TRUE(m_clock.PausesAfter([this] { SetText(kHost, L"A", L"1"); }));
    SetText(kHost, L"B", L"2");
    SetText(kHost, L"C", L"3");
    m_clock.RunFreely(true);
    WaitUntil([&] { return Updated() > before; }, "the update");
    EXPECT_THAT(Get(port, "/values").body,
                ::testing::HasSubstr("Registry$A=1\nRegistry$B=2\nRegistry$C=3\n"));
    PassOnce();
    EXPECT_EQ(Updated(), before + 2) << "one for the three values, one for the pass that makes sure";
}

TEST_F(CReloadTest, HostsComeAndGoWithTheirKeys) {
    const int kept = AddDefaultHost();
    Start();
    const int added = FreePort();
    AddHost(L"127.0.0.2", added, {{L"User Root", CValue::FromText(Folder("root"))}});
    WaitUntil([&] { return Serves(added, "127.0.0.2"); }, "the added host");
    DeleteHost(L"127.0.0.2");
    WaitUntil([&] { return !Serves(added, "127.0.0.2"); }, "the end of the host");
    EXPECT_EQ(Get(kept, "/").body, "home");
    EXPECT_EQ(Built(), 2u);
    EXPECT_EQ(Closed(), 1u);
}

TEST_F(CReloadTest, AHostWhoseKeyWasReplacedIsStillFollowed) {
    const int port = AddDefaultHost();
    Start();
    Values values = PlainHost(port);
    values.emplace_back(L"State", CValue::FromText(L"replaced"));
    ReplaceHost(values);
    GetUntil(port, "/values", Shows("Registry$State=replaced"));
    SetText(kHost, L"State", L"changed");
    GetUntil(port, "/values", Shows("Registry$State=changed"));

    // Also when the new key cannot be used at first.
    Ignore(m_events.Take());
    values = PlainHost(port);
    values.emplace_back(L"/drive", CValue::FromText(L"Q:\\folder"));
    values.emplace_back(L"State", CValue::FromText(L"mended"));
    ReplaceHost(values);
    WaitUntil([&] { return !WithId(m_events.Take(), message::kFolderUnavailable).empty(); }, "the event");
    ASSERT_EQ(HostKey(kHost)->DeleteValue(L"/drive"), ErrorCode::Success);
    GetUntil(port, "/values", Shows("Registry$State=mended"));

    // And when it holds nothing.
    ReplaceHost({});
    WaitUntil([&] { return !Serves(port); }, "the end of the host");
}

TEST_F(CReloadTest, APortMovesOneHostThoughAClientHasSentHalfAForm) {
    const int port = AddDefaultHost();
    AddBeatHost();
    Start(2);
    CHttpConnection silent(port);
    ASSERT_TRUE(
        silent.Send("POST /values HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 100\r\n"
                    "Content-Type: application/x-www-form-urlencoded\r\n\r\na="));
    const int other = FreePort();
    SetFromOutside("127.0.0.1", "Port", std::to_string(other));
    WaitUntil([&] { return Serves(other); }, "the new port");
    EXPECT_FALSE(Serves(port));
    EXPECT_EQ(Closed(), 1u);
    EXPECT_EQ(Built(), 3u);
    DeleteHost(kHost);
    WaitUntil([&] { return !Serves(other); }, "the end of the host");
    EXPECT_TRUE(Stop().IsOk());
}

TEST_F(CReloadTest, ChangesElsewhereRebuildNothing) {
    const int port = AddDefaultHost({{L"Application", CValue::FromText(L"app")}});
    const auto applications =
        m_localMachine->Create(L"Software\\Quorbel\\Quorbel HTTP Service\\Applications\\app").Value();
    ASSERT_EQ(applications->Set(L"Shared", CValue::FromText(L"old")), ErrorCode::Success);
    AddLocation(kHost, L"/system", L"SystemInfo");
    AddBeatHost();
    Start(2);
    PassOnce();
    const std::uint64_t before = Updated();
    ASSERT_EQ(applications->Set(L"Shared", CValue::FromText(L"new")), ErrorCode::Success);
    ASSERT_EQ(
        HostKey(kHost)->Create(L"Locations\\/system").Value()->Set(L"Handler", CValue::FromText(L"TestPost")),
        ErrorCode::Success);
    PassOnce();
    EXPECT_EQ(Updated(), before + 1) << "the host of the pass alone";
    EXPECT_THAT(Get(port, "/values").body, ::testing::HasSubstr("Registry$Shared=old\n"));
    SetText(kHost, L"Touch", L"1");
    GetUntil(port, "/values", Shows("Registry$Shared=new\n"));
    EXPECT_EQ(Get(port, "/system").status, 200) << "locations stay until the listener is replaced";
}

TEST_F(CReloadTest, AHostThatCannotBeBuiltLeavesTheOthersServing) {
    const int good = AddDefaultHost();
    Start();
    const CTakenPort taken("127.0.0.3");
    const std::tuple<const wchar_t*, const wchar_t*, std::wstring, std::uint32_t> cases[] = {
        {L"127.0.0.3", L"User Root", L"/nowhere/at/all", message::kFolderUnavailable},
        {L"127.0.0.3", L"/drive", L"Q:\\folder", message::kFolderUnavailable},
        {L"127.0.0.3", L"Port", L"99999", message::kStandardException},
        {L"127.0.0.3", L"Port", L"8080x", message::kStandardException},
        {L"127.0.0.3", L"Protocol", L"no scheme", message::kStandardException},
        {L"127.0.0.3", L"Port", std::to_wstring(taken.Port()), message::kStandardException},
    };
    for (const auto& [host, name, text, event] : cases) {
        SCOPED_TRACE(ToUtf8(name + (L" " + text)));
        Ignore(m_events.Take());
        AddHost(host, FreePort(),
                {{L"User Root", CValue::FromText(Folder("root"))}, {name, CValue::FromText(text)}});
        std::vector<CEventEntry> events;
        WaitUntil([&] { return !(events = WithId(m_events.Take(), event)).empty(); }, "the event");
        EXPECT_FALSE(events[0].strings[0].empty());
        if (event == message::kFolderUnavailable) {
            EXPECT_EQ(events[0].strings[0], text);
        }
        EXPECT_EQ(Get(good, "/").body, "home");
        DeleteHost(host);
    }
    EXPECT_EQ(Built(), 1u);
}

TEST_F(CReloadTest, WatchesThatCannotBeArmedEndTheServiceWithTheirCause) {
    AddDefaultHost();
    m_registry->Faults().Fail(RegistryOperation::Watch, ErrorCode::NoSystemResources, 0,
                              L"Software\\Quorbel\\Quorbel HTTP Service\\Hosts");
    Start();
    const CStatus status = WaitForEnd();
    ASSERT_FALSE(status.IsOk());
    EXPECT_EQ(status.Error()->GetCode(), ToNumber(ErrorCode::NoSystemResources));
}

TEST_F(CReloadTest, AStartFailsWithTheFirstHostThatCannotBeBuilt) {
    AddDefaultHost();
    const std::pair<const wchar_t*, std::uint32_t> cases[] = {{L"", message::kLocationWithoutHandler},
                                                              {L"systeminfo", message::kUnknownHandler}};
    for (const auto& [handler, id] : cases) {
        AddLocation(kHost, L"/x", handler);
        Start();
        const CStatus status = WaitForEnd();
        ASSERT_FALSE(status.IsOk());
        EXPECT_EQ(status.Error()->GetMessageId(), id);
    }
    ASSERT_EQ(m_localMachine->DeleteTree(L"Software\\Quorbel\\Quorbel HTTP Service\\Hosts"),
              ErrorCode::Success);
    Start();
    EXPECT_EQ(WaitForEnd().Error()->GetMessageId(), message::kConfigurationMissing);
}

TEST_F(CReloadTest, AnArchiveThatFailsEndsTheStartWithItsResult) {
    AddDefaultHost();
    AddLocation(kHost, L"/system", L"SystemInfo");
    const CComRegistration broken(kArchiveFileSystemClass, [](const GUID& id, void** object) {
        return CComPtr<IArchiveFileSystem>(new CBrokenArchive)->QueryInterface(id, object);
    });
    Start();
    EXPECT_EQ(WaitForEnd().Error()->GetHRESULT(), E_FAIL);
}

TEST_F(CReloadTest, AHostWithoutRootsIsKeptButNeverOpened) {
    AddHost(kHost, FreePort(), {{L"/docs", CValue::FromText(Folder("docs"))}});
    AddBeatHost();
    Start(1);
    PassOnce();
    EXPECT_EQ(m_trace.Count(trace::kListenerOpened), 1u);
    EXPECT_EQ(Built(), 2u);
    SetText(kHost, L"User Root", Folder("root"));
    WaitUntil([&] { return m_trace.Count(trace::kListenerOpened) == 2; }, "the endpoint");
}

}  // namespace
}  // namespace quorbel
