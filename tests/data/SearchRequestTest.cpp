#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "LibService/MessageIds.h"
#include "components/search/SearchComponent.h"
#include "components/search/SearchIndex.h"
#include "data/SearchQueryRequestHandler.h"
#include "platform/oledb/DataInitialize.h"
#include "tests/support/service/ServiceFixture.h"

namespace quorbel {
namespace {

/// A service with documents that are published as /docs and others that are published as /secret.
class SearchRequest : public CServiceFixture {
 protected:
    SearchRequest() : m_initialize(RegisterDataInitialize()), m_search(RegisterSearch(Path("search"))) {
        CSearchQueryRequestHandler::Register(m_clock);
        Write("docs/letters/storm.txt", "The lighthouse lamp was out for two nights.");
        Write("docs/it's.txt", "A lighthouse of another time.");
        Write("docs/reports/plan.html", "<title>Café plan</title><p>No lamp at all</p>");
        Write("secret/storm.txt", "The lighthouse keeper's secret.");
    }
    ~SearchRequest() override {
        End();
        m_published.TellOn(nullptr);
    }

    void Write(const std::string& name, std::string_view text) {
        std::filesystem::create_directories(Path(name).parent_path());
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    void Describe(const std::string& name, std::string_view text) {
        Write("root/" + name + ".GET.search", text);
    }
    void StartIndex() {
        ISearchIndex::Options options{Path("search"), {}, SystemClock(), {}};
        options.worker.program = QUORBEL_PROGRAMS "/QbTextExtract";
        m_index = ISearchIndex::Start(std::move(options)).Value();
        m_published.TellOn(m_index.get());
    }
    /// Serves, and waits until all documents can be found.
    void Serve() {
        Describe("all", "SELECTCOLUMNS=System.ItemUrl\r\nQUERY=*\r\n");
        StartIndex();
        m_port = AddDefaultHost(
            {{L"/docs", CValue::FromText(Folder("docs"))}, {L"/secret", CValue::FromText(Folder("secret"))}});
        Start();
        WaitUntil([this] { return Rows("/all").size() == 4; }, "the index");
    }
    CHttpReply Json(std::string_view target) { return Get(m_port, target, "Accept: application/json\r\n"); }
    nlohmann::json Rows(std::string_view target) {
        const CHttpReply reply = Json(target);
        return reply.status == 200 ? nlohmann::json::parse(reply.body, nullptr, false) : nlohmann::json();
    }
    /// The URLs of the documents found.
    std::vector<std::string> Urls(std::string_view target) {
        std::vector<std::string> urls;
        const CHttpReply reply = Json(target);
        EXPECT_EQ(reply.status, 200) << target;
        for (const auto& row : nlohmann::json::parse(reply.body, nullptr, false)) {
            urls.push_back(row.value("System.ItemUrl", "none"));
        }
        std::ranges::sort(urls);
        return urls;
    }

    const CComRegistration m_initialize;
    const CSearchRegistration m_search;
    std::unique_ptr<ISearchIndex> m_index;
    int m_port = 0;
};

TEST_F(SearchRequest, IsAnsweredWithTheDocumentsUnderTheirWebPaths) {
    Describe("find",
             "# The readers' search\r\nscope=$Directory$docs\r\nQuery=$q\r\nsyntax=natural\r\n"
             "SELECTCOLUMNS=System.ItemUrl, System.Title, System.Size, "
             "System.Search.AutoSummary\r\nMAXRESULTS=10\r\n");
    Serve();
    EXPECT_EQ(Urls("/find?q=lighthouse"),
              (std::vector<std::string>{"/docs/it's.txt", "/docs/letters/storm.txt"}));
    const auto rows = Rows("/find?q=cafe");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0]["System.ItemUrl"], "/docs/reports/plan.html");
    EXPECT_EQ(rows[0]["System.Title"], "Café plan");
    EXPECT_EQ(rows[0]["System.Size"], 46);
    EXPECT_THAT(rows[0]["System.Search.AutoSummary"].get<std::string>(),
                testing::HasSubstr("No lamp at all"));
    EXPECT_EQ(Urls("/find?q=nowhere"), std::vector<std::string>());
    EXPECT_EQ(Urls("/find?q=sto*"), std::vector<std::string>{"/docs/letters/storm.txt"});
    EXPECT_EQ(Urls("/find").size(), 3U) << "without a query everything is found";

    const CHttpReply xml = Get(m_port, "/find?q=lamp", "Accept: application/xml\r\n");
    EXPECT_EQ(xml.status, 200);
    EXPECT_THAT(xml.body, testing::HasSubstr("<System.ItemUrl>/docs/letters/storm.txt</System.ItemUrl>"));
    EXPECT_EQ(Get(m_port, "/find.xslt").status, 200);
    EXPECT_EQ(Json("/find?q=lamp&Stream=1").status, 500);
}

TEST_F(SearchRequest, NeverLeavesTheFolderOfItsDescription) {
    Describe(
        "find",
        "SCOPE=$Directory$docs\nPATH=$path\nQUERY=$q\nSELECTCOLUMNS=$columns System.ItemUrl\nSORTING=$sort");
    Describe("command",
             "COMMAND=SELECT System.ItemUrl FROM SystemIndex WHERE CONTAINS('\"$q\"') AND "
             "SCOPE='file:$Directory$docs'");
    Serve();
    EXPECT_EQ(Urls("/find?q=storm&path=/letters"), std::vector<std::string>{"/docs/letters/storm.txt"});
    EXPECT_EQ(Urls("/command?q=storm"), std::vector<std::string>{"/docs/letters/storm.txt"});
    for (const char* hostile : {
             "/find?q=storm&path=/../secret",
             "/find?q=storm&path=%2F..%5Csecret",
             "/find?q=storm&path=/x/../../../..",
             "/find?q=storm%22)%20OR%20(%22secret",
             "/find?q=*)%20OR%20(1=1",
             "/find?q=storm'%20OR%20System.Size%20%3E%200%20OR%20''%20=%20'",
             "/find?q=scope:secret%20OR%20storm",
             "/find?q=storm&path=/letters'%20OR%20SCOPE='file:/",
             "/find?q=storm&columns=System.ItemUrl%20FROM%20SystemIndex--,",
             "/find?q=storm&sort=System.ItemUrl%20OR%201",
             "/find?q=storm&Directory$docs=/etc",
             "/find?q=storm&Directory$docs%0APATH=/etc",
             "/command?q=storm%22')%20OR%20CONTAINS('%22secret",
             "/command?q=storm%22%20OR%20%22secret",
             "/command?q=storm%00secret",
         }) {
        const CHttpReply reply = Json(hostile);
        EXPECT_THAT(reply.body, testing::Not(testing::HasSubstr("secret"))) << hostile << "\n" << reply.body;
        EXPECT_THAT(reply.status, testing::AnyOf(200, 400, 403, 500)) << hostile;
    }
    // Nor by the fields of a form, some of which would name a longer folder.
    Write("root/post.POST.search",
          "SCOPE=$Directory$docs/letters\nQUERY=storm\nSELECTCOLUMNS=System.ItemUrl");
    CHttpConnection connection(m_port);
    const auto reply = connection.Request(
        "POST", "/post", "Accept: application/json\r\nContent-Type: application/x-www-form-urlencoded\r\n",
        "Directory$docs/letters=0/&Directory$docs/lett=" + Path("secret").string());
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200);
    EXPECT_THAT(reply->body, testing::HasSubstr("/docs/letters/storm.txt"));
    EXPECT_THAT(reply->body, testing::Not(testing::HasSubstr("secret")));
}

TEST_F(SearchRequest, LeavesOutFoldersButNotFilesThatAreGone) {
    Describe("find", "SCOPE=$Directory$docs\nQUERY=$q");
    Serve();
    m_published.TellOn(nullptr);
    m_index.reset();
    std::filesystem::remove(Path("docs/it's.txt"));
    std::filesystem::remove(Path("docs/letters/storm.txt"));
    std::filesystem::create_directory(Path("docs/letters/storm.txt"));
    EXPECT_EQ(Urls("/find?q=lighthouse"), std::vector<std::string>{"/docs/it's.txt"});
}

TEST_F(SearchRequest, FollowsTheHostsConfiguration) {
    Serve();
    SetText(kHost, L"/secret", Folder("empty"));
    WaitUntil([this] { return Rows("/all").size() == 3; }, "the folder to be left");
    Write("apps/notes/index.GET.html", "<p>The lighthouse app</p>");
    SetText(kHost, L"User/notes", FromUtf8(Path("apps/notes/index.GET.html").string()));
    WaitUntil([this] { return Rows("/all").size() == 4; }, "the application's folder");
    const auto published = m_published.Last();
    EXPECT_THAT(published, testing::Contains(Folder("root")));
    EXPECT_THAT(published, testing::Contains(Folder("docs")));
}

TEST_F(SearchRequest, FailsWithAnEventThatSaysWhyAndNothingElse) {
    struct CCase {
        const char* name;
        const char* description;
        const char* target;
        std::uint32_t event;
        const wchar_t* insertion;
    };
    const CCase cases[] = {
        {"columns", "SELECTCOLUMNS=System.Nonsense", "/columns", message::kSearchDescriptionRefused,
         L"System.Nonsense"},
        {"sorting", "SORTING=up", "/sorting", message::kSearchDescriptionRefused, L"up"},
        {"where", "WHERERESTRICTIONS=SCOPE='file:/x'", "/where", message::kSearchDescriptionRefused, L""},
        {"outside", "COMMAND=SELECT System.ItemUrl FROM SystemIndex WHERE $q", "/outside?q=a%27b",
         message::kSearchDescriptionRefused, L"quotes"},
        {"command", "COMMAND=SELECT nothing", "/command", message::kSearchFailed, L"SELECT nothing"},
    };
    for (const CCase& one : cases) Describe(one.name, one.description);
    Serve();
    for (const CCase& one : cases) {
        m_events.Take();
        const CHttpReply reply = Json(one.target);
        EXPECT_EQ(reply.status, 500) << one.name;
        EXPECT_EQ(reply.body, "") << one.name;
        const auto events = WithId(m_events.Take(), one.event);
        ASSERT_EQ(events.size(), 1U) << one.name;
        std::wstring all;
        for (const std::wstring& insertion : events[0].strings) all += insertion + L"\n";
        EXPECT_THAT(all, testing::HasSubstr(one.insertion)) << one.name;
        EXPECT_THAT(all, testing::HasSubstr(L".GET.search")) << one.name;
    }
}

TEST_F(SearchRequest, FailsWhenThereIsNoIndexYet) {
    Describe("find", "QUERY=x");
    m_port = AddDefaultHost();
    Start();
    EXPECT_EQ(Json("/find").status, 500);
    const auto events = WithId(m_events.Take(), message::kSearchSourceUnavailable);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].strings[0], L"Provider=Quorbel.SearchProvider");
}

}  // namespace
}  // namespace quorbel
