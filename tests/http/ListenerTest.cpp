#include "LibService/MessageIds.h"
#include "tests/support/service/ServiceFixture.h"
#include "tests/support/service/TestHandlers.h"

namespace quorbel {
namespace {

class CListenerTest : public CServiceFixture {
 protected:
    struct CExchange {
        std::string request;  ///< method and target
        std::string headerLines;
        std::string reply;  ///< status, the fields asked for, and body, with a bar between each two
    };

    CListenerTest() { RegisterTestHandlers(); }
    void Write(std::string_view name, std::string_view content) { WriteFile(Path(name), content); }

    static CHttpReply Ask(int port, const std::string& request, std::string_view headerLines = "",
                          std::string_view body = "") {
        const std::size_t blank = request.find(' ');
        const auto reply = CHttpConnection(port).Request(request.substr(0, blank), request.substr(blank + 1),
                                                         headerLines, body);
        EXPECT_TRUE(reply.has_value()) << "no whole reply to " << request;
        return reply.value_or(CHttpReply());
    }
    static void Check(int port, const std::vector<CExchange>& exchanges,
                      const std::vector<const wchar_t*>& fields = {}) {
        for (const auto& [request, headerLines, expected] : exchanges) {
            const CHttpReply reply = Ask(port, request, headerLines);
            std::string shown = std::to_string(reply.status);
            for (const wchar_t* field : fields) shown += "|" + reply.Header(field);
            EXPECT_EQ(shown + "|" + reply.body, expected) << request << "\n" << headerLines;
        }
    }
};

TEST_F(CListenerTest, EveryKindOfReplyCarriesItsHeaders) {
    Write("root/.GET.html", "home");
    Write("root/own.GET.sql", "");
    Write("app/page.GET.css", "css");
    Write("docs/letter.txt", "letter");
    const int port = AddDefaultHost({{L"User/app", CValue::FromText(Folder("app") + L"/page.GET.css")},
                                     {L"/docs", CValue::FromText(Folder("docs"))}});
    AddLocation(kHost, L"/system", L"SystemInfo");
    Start();
    const std::string tag = Get(port, "/docs/letter.txt").Header(L"ETag");
    EXPECT_EQ(tag.size(), 12u);
    EXPECT_EQ(tag.back(), '=');

    const std::string usual = "|bytes|nosniff|0|(none)|Quorbel Vellmoor/7.30|frame-ancestors 'self'|";
    const std::string own = "|bytes|nosniff|0|(none)|Own/1|default-src 'none', frame-ancestors 'self'|";
    Check(port,
          {{"GET /", "", "200|text/html|(none)" + usual + "home"},
           {"GET /app/page", "", "200|text/css|max-age=3600" + usual + "css"},
           {"GET /docs/letter.txt", "", "200|text/plain|private" + usual + "letter"},
           {"GET /docs/letter.txt", "if-none-match: " + tag + "\r\n", "304|(none)|(none)" + usual},
           {"GET /own", "",
            "200|text/plain|no-store" + own + "SQL own.GET.sql\nuser \nDirectory$docs=0" +
                Path("docs").string() + "\n"},
           {"GET /missing", "", "404|(none)|(none)" + usual},
           {"GET /system", "Accept: application/json\r\n",
            "200|application/json|private" + usual + "{\"Version\":\"Quorbel Archive 7.30\"}"}},
          {L"Content-Type", L"Cache-Control", L"Accept-Ranges", L"X-Content-Type-Options",
           L"X-XSS-Protection", L"Strict-Transport-Security", L"Server", L"Content-Security-Policy"});
}

TEST_F(CListenerTest, OtherMethodsAreRefusedWithWhatIsAllowed) {
    Write("root/x.GET.html", "x");
    const int port = AddDefaultHost();
    AddLocation(kHost, L"/post", L"TestPost");
    Start();
    const std::string usual = "|Quorbel Vellmoor/7.30|(none)|";
    Check(port,
          {{"OPTIONS *", "", "200|GET, POST" + usual},
           {"OPTIONS /x", "", "200|GET" + usual},
           {"OPTIONS /post", "", "200|GET, POST" + usual},
           {"PUT /post", "", "405|GET, POST" + usual},
           {"DELETE /x", "", "405|GET" + usual},
           {"TRACE /post", "", "405|GET, POST" + usual},
           {"BREW /x", "", "405|GET" + usual}},
          {L"Allow", L"Server", L"Content-Security-Policy"});
    EXPECT_EQ(m_trace.Count(trace::kMethodRefused), 4u);
    EXPECT_EQ(m_trace.Count(trace::kRequest), 3u);
}

TEST_F(CListenerTest, NoTargetLeavesThePublishedFolders) {
    Write("secret.GET.txt", "secret");
    Write("rootx.GET.txt", "secret");
    Write("secret.txt", "secret");
    Write("root/a/b.GET.txt", "inside");
    Write("docs/a/b.txt", "inside");
    Write("docs/a/..GET", "inside");
    const int port = AddDefaultHost({{L"/docs", CValue::FromText(Folder("docs"))},
                                     {L"User/app", CValue::FromText(Folder("root") + L"/x")}});
    Start();
    const std::pair<std::string_view, int> cases[] = {{"/a/b", 200},
                                                      {"/a/x/../b", 200},
                                                      {"/a%2fb", 200},
                                                      {"/a%5cb", 200},
                                                      {"/a/./b", 200},
                                                      {"/a/%2e/b", 200},
                                                      {"/a/x/%2E%2e/b", 200},
                                                      {"/docs/a/b.txt", 200},
                                                      {"/docs/a%5C..%5Ca%2fb.txt", 200},
                                                      {"/../secret", 400},
                                                      {"/..%2fsecret", 400},
                                                      {"/a/../../secret", 400},
                                                      {"/%2e%2e/secret", 400},
                                                      {"/%2e%2e%5csecret", 400},
                                                      {"/%252e%252e/secret", 404},
                                                      {"/docs/../../secret.txt", 400},
                                                      {"/docs/..%5c..%5csecret.txt", 400},
                                                      {"/docs/a/.?extension=./secret.txt", 404},
                                                      {"/docs/a/.?extension=.", 404},
                                                      {"/docs/x.y?extension=txt/../../../secret.txt", 404},
                                                      {"/docs/x.y?extension=txt%5C..%5C..%5Csecret.txt", 404},
                                                      {"/docs/a/b.txt?view=../../secret.txt", 404},
                                                      {"/docs/a/b.txt?view=..", 404},
                                                      {"/app/../../secret", 400},
                                                      {"/app/..%2fsecret", 404},
                                                      {"/a%00b", 400},
                                                      {"/a%0ab", 400},
                                                      {"/a%7f", 400},
                                                      {"/a%c2%85", 400},
                                                      {"/%ff", 400},
                                                      {"/%c0%af..%c0%afsecret", 400},
                                                      {"/%ed%a0%80", 400},
                                                      {"/%", 400},
                                                      {"/%zz", 400},
                                                      {"/%u002e", 400}};
    for (const auto& [target, status] : cases) {
        SCOPED_TRACE(target);
        const CHttpReply reply = Get(port, target);
        EXPECT_EQ(reply.status, status);
        EXPECT_EQ(reply.body, status == 200 ? "inside" : "");
    }
    EXPECT_THAT(Get(port, "/" + std::string(10'000, 'a')).status, ::testing::AnyOf(404, 414));
    EXPECT_EQ(Get(port, "/a/b").body, "inside") << "the service goes on";
}

TEST_F(CListenerTest, LevelsDecideWhatIsReached) {
    Write("admin/both.GET.txt", "admin");
    Write("user/both.GET.txt", "user");
    Write("anon/both.GET.txt", "anon");
    Write("anon/open.GET.txt", "open");
    Write("user/home.GET.txt", "home");
    Write("archive/f.txt", "archive");
    Write("tool/.GET.txt", "tool");
    const int port = FreePort();
    AddHost(kHost, port,
            {{L"Admin Root", CValue::FromText(Folder("admin"))},
             {L"User Root", CValue::FromText(Folder("user"))},
             {L"Anon Root", CValue::FromText(Folder("anon"))},
             {L"Admin/tool", CValue::FromText(Folder("tool") + L"/.GET.txt")},
             {L"/archive", CValue::FromText(Folder("archive"))}});
    AddLocation(kHost, L"/auth", L"TestAuthenticate");
    Start();
    const std::string home = "303|/|";
    for (int round = 0; round < 2; ++round) {  // searched, then from the cache
        Check(port,
              {{"GET /both", "", "200|(none)|anon"},
               {"GET /both", "X-Level: 2\r\n", "200|(none)|user"},
               {"GET /both", "X-Level: 3\r\n", "200|(none)|admin"},
               {"GET /open", "X-Level: 3\r\n", "200|(none)|open"},
               {"GET /home", "", home},
               {"GET /home", "X-Level: 2\r\n", "200|(none)|home"},
               {"GET /", "", "402|(none)|"},
               {"GET /", "X-Level: 2\r\n", "404|(none)|"},
               {"GET /none", "X-Level: 2\r\nCookie: s=1\r\n", home},
               {"GET /none", "Cookie: s=1\r\n", home},
               {"GET /archive/f.txt", "", home},
               {"GET /archive/f.txt", "X-Level: 2\r\n", "200|(none)|archive"},
               {"GET /tool/", "X-Level: 2\r\n", "404|(none)|"},
               {"GET /tool/", "X-Level: 3\r\n", "200|(none)|tool"},
               {"GET /auth", "X-Level: 2\r\n", "404|(none)|"},
               {"GET /auth/x", "X-Level: 2\r\n", "404|(none)|"},
               {"GET /AUTH", "", home}},
              {L"Location"});
    }
}

TEST_F(CListenerTest, HandlerFilesAreChosenByPathMethodAndKind) {
    Write("root/report.GET.sql", "");
    Write("root/report.POST.Sql", "");
    Write("root/find.GET.SEARCH", "");
    Write("root/own.xslt.GET.html", "own stylesheet");
    Write("root/own.GET.sql", "");
    Write("root/a star * here.GET.txt", "star");
    Write("root/\xF0\x9F\x93\x9C\xE6\xA1\xA3.GET.txt", "scroll");
    Write("root/two.GET.aaa", "first");
    Write("root/two.GET.bbb", "second");
    std::filesystem::create_directories(Path("root/folder.GET.d"));
    Write("app/deep/list.GET.sql", "");
    const int port = AddDefaultHost({{L"User/app", CValue::FromText(Folder("app") + L"/x")}});
    Start();
    const std::string list = "200|SQL list.GET.sql\nuser \n";
    const std::string report = "200|SQL report.GET.sql\nuser \n";
    const std::string find = "200|SEARCH find.GET.SEARCH\nuser \n";
    Check(port, {{"GET /report", "", report},
                 {"POST /report", "", "200|SQL report.POST.Sql\nuser \n"},
                 {"POST /find", "", "404|"},
                 {"GET /find", "", find},
                 {"GET /report.xslt", "", report},
                 {"GET /REPORT.xslt", "", "404|"},
                 {"GET /report.XSLT", "", report},
                 {"GET /find.xslt", "", find},
                 {"GET /own.xslt", "", "200|own stylesheet"},
                 {"GET /two.xslt", "", "404|"},
                 {"GET /app/deep/list.xslt", "", list},
                 {"GET /a%20star%20*%20here", "", "200|star"},
                 {"GET /%F0%9F%93%9C%E6%A1%A3", "", "200|scroll"},
                 {"GET /two", "", "200|first"},
                 {"GET /folder", "", "404|"}});
}

TEST_F(CListenerTest, FormFieldsReachHandlersButNamedValuesWin) {
    Write("root/form.POST.sql", "");
    const int port = AddDefaultHost({{L"Fixed", CValue::FromText(L"kept")}});
    Start();
    const struct {
        const char* contentType;
        const char* body;
        std::vector<const char*> present;
        std::vector<const char*> absent;
    } cases[] = {{"application/x-www-form-urlencoded", "a=1+2&b=%41&a=3", {"a=3\n", "b=%41\n"}, {}},
                 {"text/plain; APPLICATION/ x-www-form-urlencoded", "q=x+y%2B", {"q=x%20y%2B\n"}, {}},
                 {"application/x-www-form-urlencoded;charset=utf-8",
                  "Registry$Fixed=forged&novalue",
                  {"Registry$Fixed=kept\n"},
                  {"forged", "novalue"}},
                 {"text/plain", "a=1", {"Registry$Fixed=kept\n"}, {"a=1"}}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.contentType);
        const CHttpReply reply =
            Ask(port, "POST /form", "Content-Type: " + std::string(test.contentType) + "\r\n", test.body);
        EXPECT_EQ(reply.status, 200);
        for (const char* text : test.present) EXPECT_THAT(reply.body, ::testing::HasSubstr(text));
        for (const char* text : test.absent)
            EXPECT_THAT(reply.body, ::testing::Not(::testing::HasSubstr(text)));
    }
}

TEST_F(CListenerTest, MappingsServeArchiveFilesAndTheirViews) {
    Write("a/x.txt", "in a");
    Write("ab/x.txt", "in ab");
    Write("ab/y.TXT", "upper");
    Write("docsx", "beside");
    Write("views" + Path("ab/x.txt").string() + "/thumb", "a view");
    Write("root/a/z.GET.html", "general");
    Write("root/view.GET.html", "general");
    ASSERT_EQ(m_localMachine->Create(L"SOFTWARE\\Quorbel\\Archive")
                  .Value()
                  ->Set(L"Views", CValue::FromText(Folder("views"))),
              ErrorCode::Success);
    const int port = AddDefaultHost({{L"/a", CValue::FromText(Folder("a"))},
                                     {L"/a/b", CValue::FromText(Folder("ab"))},
                                     {L"/docs", CValue::FromText(FromUtf8(Path("docs").string()))}});
    Start();
    Check(port,
          {{"GET /a/x.txt", "",
            "404|(none)|(none)|"},  // compared with /a/b alone, the greatest name not above it
           {"GET /a/b/x.txt", "", "200|text/plain|private|in ab"},
           {"GET /a/b/x.txt?view=thumb", "", "200|text/plain|private|a view"},
           {"GET /a/b/x.txt?view=none", "", "404|(none)|(none)|"},
           {"GET /a/b/x.pdf?extension=txt", "", "200|application/pdf|private|in ab"},
           {"GET /a/b/x?extension=txt", "", "200|application/octet-stream|private|in ab"},
           {"GET /a/b/y.txt", "", "404|(none)|(none)|"},
           {"GET /A/b/x.txt", "", "404|(none)|(none)|"},
           {"GET /docsx", "", "200|application/octet-stream|private|beside"},
           {"GET /a/z", "", "200|text/html|(none)|general"}},
          {L"Content-Type", L"Cache-Control"});
    const std::string tag = Get(port, "/a/b/x.txt").Header(L"ETag");
    EXPECT_EQ(Get(port, "/a/b/x.txt").Header(L"ETag"), tag);
    const std::string viewTag = Get(port, "/a/b/x.txt?view=thumb").Header(L"ETag");
    EXPECT_NE(viewTag, tag);
    Write("ab/x.txt", "changed");
    EXPECT_NE(Get(port, "/a/b/x.txt").Header(L"ETag"), tag);
    EXPECT_EQ(Get(port, "/a/b/x.txt", "If-None-Match: " + tag + "\r\n").status, 200);
}

TEST_F(CListenerTest, RangesAreServedAsParts) {
    Write("docs/f.bin", "0123456789");
    Write("docs/empty.bin", "");
    Write("root/f.GET.bin", "0123456789");
    const int port = AddDefaultHost(
        {{L"/docs", CValue::FromText(Folder("docs"))}, {L"Default Range", CValue::FromNumber32(4)}});
    Start();
    const std::string docs = "GET /docs/f.bin";
    const std::string tag = Get(port, "/docs/f.bin").Header(L"ETag");
    const std::string emptyTag = Get(port, "/docs/empty.bin").Header(L"ETag");
    Check(port,
          {{docs, "Range: bytes=2-5\r\n", "206|bytes 2-5/10|4|" + tag + "|2345"},
           {docs, "Range: bytes=2-\r\n", "206|bytes 2-5/10|4|" + tag + "|2345"},
           {docs, "Range: bytes=8-\r\n", "206|bytes 8-9/10|2|" + tag + "|89"},
           {docs, "Range: bytes=0-0,5-6\r\n", "206|bytes 0-0/10|1|" + tag + "|0"},
           {docs, "Range: bytes=0-99\r\n", "200|(none)|10|" + tag + "|0123456789"},
           {docs, "Range: bytes=-3\r\n", "200|(none)|10|" + tag + "|0123456789"},
           {docs, "Range: bytes=10-\r\n", "416|bytes */10|0|(none)|"},
           {"GET /docs/empty.bin", "Range: bytes=0-\r\n", "416|bytes */0|0|(none)|"},
           {"GET /docs/empty.bin", "Range: bytes=-1\r\n", "200|(none)|0|" + emptyTag + "|"},
           {"GET /f", "Range: bytes=2-\r\n", "206|bytes 2-9/10|8|(none)|23456789"}},
          {L"Content-Range", L"Content-Length", L"ETag"});
}

TEST_F(CListenerTest, AFailingHandlerIsAnswered500AndTheServiceGoesOn) {
    Write("root/bad.GET.fail", "");
    Write("root/good.GET.txt", "good");
    const int port = AddDefaultHost();
    Start();
    Check(port, {{"GET /bad", "", "500|"}});
    const auto events = WithId(m_events.Take(), message::kCaughtException);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_THAT(events[0].strings, ::testing::ElementsAre(L"the handler failed"));
    EXPECT_EQ(Get(port, "/good").body, "good");
}

TEST_F(CListenerTest, AMissIsSearchedAndReportedOnceUntilAFileAppears) {
    Folder("root/sub");
    const int port = AddDefaultHost();
    Start();
    EXPECT_EQ(Get(port, "/sub/late").status, 404);
    EXPECT_EQ(Get(port, "/sub/late").status, 404);
    const auto events = WithId(m_events.Take(), message::kNotFound);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_THAT(events[0].strings, ::testing::ElementsAre(kHost, L"/sub/late"));
    Write("root/sub/late.GET.txt", "here");
    EXPECT_EQ(GetUntil(port, "/sub/late", [](const CHttpReply& r) { return r.status == 200; }).body, "here");
    std::filesystem::remove(Path("root/sub/late.GET.txt"));
    EXPECT_EQ(GetUntil(port, "/sub/late", [](const CHttpReply& r) { return r.status == 404; }).body, "");
}

TEST_F(CListenerTest, AScannerDoesNotFloodTheEventLog) {
    const int port = AddDefaultHost();
    Start();
    CHttpConnection connection(port);
    for (int i = 0; i < 30; ++i) {
        const auto reply = connection.Request("GET", "/scan" + std::to_string(i));
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->status, 404);
    }
    EXPECT_EQ(WithId(m_events.Take(), message::kNotFound).size(), 10u);
    m_clock.Turn(std::chrono::seconds(1));
    connection.Request("GET", "/last");
    const auto events = WithId(m_events.Take(), message::kNotFound);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].strings[1], L"/last (20 further entries were left out)");
}

TEST_F(CListenerTest, AFileThatShrinksWhileItIsSentEndsTheConnectionEarly) {
    Write("root/large.GET.bin", std::string(64 << 20, 'x'));
    const int port = AddDefaultHost();
    Start();
    CHttpConnection connection(port);
    ASSERT_TRUE(connection.Send("GET /large HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
    // The file is open once the reply begins, and the sockets' buffers hold far less than it: most is not
    // read yet.
    ASSERT_TRUE(connection.WaitForBytes());
    std::filesystem::resize_file(Path("root/large.GET.bin"), 1);
    EXPECT_FALSE(connection.Receive().has_value());
    EXPECT_EQ(Get(port, "/large").body, "x");
}

}  // namespace
}  // namespace quorbel
