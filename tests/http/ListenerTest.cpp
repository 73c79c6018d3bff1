#include "LibService/MessageIds.h"
#include "tests/support/service/ServiceFixture.h"
#include "tests/support/service/TestHandlers.h"

namespace quorbel {
namespace {

class CListenerTest : public CServiceFixture {
 protected:
    CListenerTest() { RegisterTestHandlers(); }
    void Write(std::string_view name, std::string_view content) { WriteFile(Path(name), content); }
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

    const struct {
        const char* target;
        std::string headerLines;
        int status;
        const char* contentType;
        const char* cacheControl;
        const char* body;
    } cases[] = {
        {"/", "", 200, "text/html", "(none)", "home"},
        {"/app/page", "", 200, "text/css", "max-age=3600", "css"},
        {"/docs/letter.txt", "", 200, "text/plain", "private", "letter"},
        {"/docs/letter.txt", "if-none-match: " + tag + "\r\n", 304, "(none)", "(none)", ""},
        {"/own", "", 200, "text/plain", "no-store", "SQL own.GET.sql\nuser \nDirectory$docs=0"},
        {"/missing", "", 404, "(none)", "(none)", ""},
        {"/system", "Accept: application/json\r\n", 200, "application/json", "private", "{\"Version\":\""},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.target + test.headerLines);
        const CHttpReply reply = Get(port, test.target, test.headerLines);
        EXPECT_EQ(reply.status, test.status);
        EXPECT_EQ(reply.Header(L"Content-Type"), test.contentType);
        EXPECT_EQ(reply.Header(L"Cache-Control"), test.cacheControl);
        EXPECT_EQ(reply.Header(L"Accept-Ranges"), "bytes");
        EXPECT_EQ(reply.Header(L"X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(reply.Header(L"X-XSS-Protection"), "0");
        EXPECT_EQ(reply.Header(L"Strict-Transport-Security"), "(none)");
        const bool isOwn = std::string_view(test.target) == "/own";
        EXPECT_EQ(reply.Header(L"Server"), isOwn ? "Own/1" : "Quorbel Vellmoor/7.30");
        EXPECT_EQ(reply.Header(L"Content-Security-Policy"),
                  isOwn ? "default-src 'none', frame-ancestors 'self'" : "frame-ancestors 'self'");
        EXPECT_EQ(reply.body.substr(0, std::string_view(test.body).size()), test.body);
    }
    EXPECT_EQ(tag.size(), 12u);
    EXPECT_EQ(tag.back(), '=');
}

TEST_F(CListenerTest, OtherMethodsAreRefusedWithWhatIsAllowed) {
    Write("root/x.GET.html", "x");
    const int port = AddDefaultHost();
    AddLocation(kHost, L"/post", L"TestPost");
    Start();
    const struct {
        const char* method;
        const char* target;
        int status;
        const char* allow;
    } cases[] = {
        {"OPTIONS", "*", 200, "GET, POST"},   {"OPTIONS", "/x", 200, "GET"}, {"OPTIONS", "/post", 200, "GET, POST"},
        {"PUT", "/post", 405, "GET, POST"},   {"PUT", "/x", 405, "GET"},     {"DELETE", "/x", 405, "GET"},
        {"TRACE", "/post", 405, "GET, POST"}, {"BREW", "/x", 405, "GET"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.method) + " " + test.target);
        CHttpConnection connection(port);
        const auto reply = connection.Request(test.method, test.target);
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->status, test.status);
        EXPECT_EQ(reply->Header(L"Allow"), test.allow);
        EXPECT_EQ(reply->Header(L"Server"), "Quorbel Vellmoor/7.30");
        EXPECT_EQ(reply->Header(L"Content-Security-Policy"), "(none)");
        EXPECT_EQ(reply->body, "");
    }
    EXPECT_EQ(m_trace.Count(trace::kMethodRefused), 5u);
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
    const std::string tooLong(10'000, 'a');
    const struct {
        std::string target;
        std::vector<int> statuses;
    } cases[] = {
        {"/a/b", {200}},
        {"/a/x/../b", {200}},
        {"/a%2fb", {200}},
        {"/a%5cb", {200}},
        {"/a/./b", {200}},
        {"/a/%2e/b", {200}},
        {"/a/x/%2E%2e/b", {200}},
        {"/docs/a/b.txt", {200}},
        {"/docs/a%5C..%5Ca%2fb.txt", {200}},
        {"/../secret", {400}},
        {"/..%2fsecret", {400}},
        {"/a/../../secret", {400}},
        {"/%2e%2e/secret", {400}},
        {"/%2e%2e%5csecret", {400}},
        {"/%252e%252e/secret", {404}},
        {"/docs/../../secret.txt", {400}},
        {"/docs/..%5c..%5csecret.txt", {400}},
        {"/docs/a/.?extension=./secret.txt", {404}},
        {"/docs/a/.?extension=.", {404}},
        {"/docs/x.y?extension=txt/../../../secret.txt", {404}},
        {"/docs/x.y?extension=txt%5C..%5C..%5Csecret.txt", {404}},
        {"/docs/a/b.txt?view=../../secret.txt", {404}},
        {"/docs/a/b.txt?view=..", {404}},
        {"/app/../../secret", {400}},
        {"/app/..%2fsecret", {404}},  // resolves to /secret, which is not there
        {"/a%00b", {400}},
        {"/a%0ab", {400}},
        {"/a%7f", {400}},
        {"/a%c2%85", {400}},
        {"/%ff", {400}},
        {"/%c0%af..%c0%afsecret", {400}},
        {"/%ed%a0%80", {400}},
        {"/%", {400}},
        {"/%zz", {400}},
        {"/%u002e", {400}},
        {"/" + tooLong, {404, 414}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.target.substr(0, 80));
        const CHttpReply reply = Get(port, test.target);
        EXPECT_THAT(test.statuses, ::testing::Contains(reply.status));
        if (reply.status == 200) {
            EXPECT_EQ(reply.body, "inside");
        }
        EXPECT_EQ(reply.body.find("secret"), std::string::npos);
    }
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
    const struct {
        const char* target;
        const char* headerLines;
        int status;
        const char* body;
    } cases[] = {
        {"/both", "", 200, "anon"},
        {"/both", "X-Level: 2\r\n", 200, "user"},
        {"/both", "X-Level: 3\r\n", 200, "admin"},
        {"/open", "X-Level: 3\r\n", 200, "open"},
        {"/home", "", 303, ""},
        {"/home", "X-Level: 2\r\n", 200, "home"},
        {"/", "", 402, ""},
        {"/", "X-Level: 2\r\n", 404, ""},
        {"/none", "X-Level: 2\r\nCookie: s=1\r\n", 303, ""},
        {"/none", "Cookie: s=1\r\n", 303, ""},
        {"/archive/f.txt", "", 303, ""},
        {"/archive/f.txt", "X-Level: 2\r\n", 200, "archive"},
        {"/tool/", "X-Level: 2\r\n", 404, ""},
        {"/tool/", "X-Level: 3\r\n", 200, "tool"},
        {"/auth", "X-Level: 2\r\n", 404, ""},
        {"/auth/x", "X-Level: 2\r\n", 404, ""},
        {"/AUTH", "", 303, ""},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.target) + " " + test.headerLines);
        for (int round = 0; round < 2; ++round) {  // searched, then from the cache
            const CHttpReply reply = Get(port, test.target, test.headerLines);
            EXPECT_EQ(reply.status, test.status);
            EXPECT_EQ(reply.body, test.body);
            EXPECT_EQ(reply.Header(L"Location"), test.status == 303 ? "/" : "(none)");
        }
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
    const struct {
        const char* method;
        const char* target;
        int status;
        const char* start;
    } cases[] = {
        {"GET", "/report", 200, "SQL report.GET.sql"},
        {"POST", "/report", 200, "SQL report.POST.Sql"},
        {"POST", "/find", 404, ""},
        {"GET", "/find", 200, "SEARCH find.GET.SEARCH"},
        {"GET", "/report.xslt", 200, "SQL report.GET.sql"},
        {"GET", "/REPORT.xslt", 404, ""},
        {"GET", "/report.XSLT", 200, "SQL report.GET.sql"},
        {"GET", "/find.xslt", 200, "SEARCH find.GET.SEARCH"},
        {"GET", "/own.xslt", 200, "own stylesheet"},
        {"GET", "/two.xslt", 404, ""},
        {"GET", "/app/deep/list.xslt", 200, "SQL list.GET.sql"},
        {"GET", "/a%20star%20*%20here", 200, "star"},
        {"GET", "/%F0%9F%93%9C%E6%A1%A3", 200, "scroll"},
        {"GET", "/two", 200, "first"},
        {"GET", "/folder", 404, ""},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.method) + " " + test.target);
        CHttpConnection connection(port);
        const auto reply = connection.Request(test.method, test.target);
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->status, test.status);
        EXPECT_EQ(reply->body.substr(0, std::string_view(test.start).size()), test.start);
    }
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
    } cases[] = {
        {"application/x-www-form-urlencoded", "a=1+2&b=%41&a=3", {"a=3\n", "b=%41\n"}, {}},
        {"text/plain; APPLICATION/ x-www-form-urlencoded", "q=x+y%2B", {"q=x%20y%2B\n"}, {}},
        {"application/x-www-form-urlencoded;charset=utf-8", "Registry$Fixed=forged&novalue", {"Registry$Fixed=kept\n"},
         {"forged", "novalue"}},
        {"text/plain", "a=1", {"Registry$Fixed=kept\n"}, {"a=1"}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.contentType);
        CHttpConnection connection(port);
        const auto reply = connection.Request("POST", "/form",
                                              "Content-Type: " + std::string(test.contentType) + "\r\n", test.body);
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->status, 200);
        for (const char* text : test.present) EXPECT_THAT(reply->body, ::testing::HasSubstr(text));
        for (const char* text : test.absent) EXPECT_THAT(reply->body, ::testing::Not(::testing::HasSubstr(text)));
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
    const struct {
        const char* target;
        int status;
        const char* body;
        const char* contentType;
        const char* cacheControl;
    } cases[] = {
        {"/a/x.txt", 404, "", "(none)", "(none)"},  // compared with /a/b alone, the greatest name not above it
        {"/a/b/x.txt", 200, "in ab", "text/plain", "private"},
        {"/a/b/x.txt?view=thumb", 200, "a view", "text/plain", "private"},
        {"/a/b/x.txt?view=none", 404, "", "(none)", "(none)"},
        {"/a/b/x.pdf?extension=txt", 200, "in ab", "application/pdf", "private"},
        {"/a/b/x?extension=txt", 200, "in ab", "application/octet-stream", "private"},
        {"/a/b/y.txt", 404, "", "(none)", "(none)"},
        {"/A/b/x.txt", 404, "", "(none)", "(none)"},
        {"/docsx", 200, "beside", "application/octet-stream", "private"},
        {"/a/z", 200, "general", "text/html", "(none)"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.target);
        const CHttpReply reply = Get(port, test.target);
        EXPECT_EQ(reply.status, test.status);
        EXPECT_EQ(reply.body, test.body);
        EXPECT_EQ(reply.Header(L"Content-Type"), test.contentType);
        EXPECT_EQ(reply.Header(L"Cache-Control"), test.cacheControl);
    }
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
    const struct {
        const char* target;
        const char* range;
        int status;
        const char* contentRange;
        const char* length;
        const char* body;
    } cases[] = {
        {"/docs/f.bin", "bytes=2-5", 206, "bytes 2-5/10", "4", "2345"},
        {"/docs/f.bin", "bytes=2-", 206, "bytes 2-5/10", "4", "2345"},
        {"/docs/f.bin", "bytes=8-", 206, "bytes 8-9/10", "2", "89"},
        {"/docs/f.bin", "bytes=0-0,5-6", 206, "bytes 0-0/10", "1", "0"},
        {"/docs/f.bin", "bytes=0-99", 200, "(none)", "10", "0123456789"},
        {"/docs/f.bin", "bytes=-3", 200, "(none)", "10", "0123456789"},
        {"/docs/f.bin", "bytes=10-", 416, "bytes */10", "0", ""},
        {"/docs/empty.bin", "bytes=0-", 416, "bytes */0", "0", ""},
        {"/docs/empty.bin", "bytes=-1", 200, "(none)", "0", ""},
        {"/f", "bytes=2-", 206, "bytes 2-9/10", "8", "23456789"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.target) + " " + test.range);
        const CHttpReply reply = Get(port, test.target, "Range: " + std::string(test.range) + "\r\n");
        EXPECT_EQ(reply.status, test.status);
        EXPECT_EQ(reply.Header(L"Content-Range"), test.contentRange);
        EXPECT_EQ(reply.Header(L"Content-Length"), test.length);
        EXPECT_EQ(reply.Header(L"ETag") == "(none)", test.status == 416 || test.target[1] == 'f');
        EXPECT_EQ(reply.body, test.body);
    }
}

TEST_F(CListenerTest, AFailingHandlerIsAnswered500AndTheServiceGoesOn) {
    Write("root/bad.GET.fail", "");
    Write("root/good.GET.txt", "good");
    Write("docs/f.txt", "f");
    const int port = AddDefaultHost();
    Start();
    const CHttpReply reply = Get(port, "/bad");
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.body, "");
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
    ASSERT_TRUE(connection.Send("GET /large HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    // The sockets' buffers hold far less than the file: most of it is not read yet.
    WaitUntil([&] { return m_trace.Count(trace::kRequest) == 1; }, "the request");
    std::filesystem::resize_file(Path("root/large.GET.bin"), 1);
    EXPECT_FALSE(connection.Receive().has_value());
    EXPECT_EQ(Get(port, "/large").body, "x");
}

}  // namespace
}  // namespace quorbel
