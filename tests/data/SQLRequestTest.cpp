#include <fstream>
#include <gmock/gmock.h>
#include <sqlite3.h>

#include "LibService/MessageIds.h"
#include "tests/data/QueryFixture.h"

namespace quorbel {

namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;

/// A query that gives so many rows, and then fails.
constexpr const char* kFailsAtRow10000 =
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n)"
    "SELECT CASE WHEN i < 10000 THEN i ELSE abs(-9223372036854775807 - 1) END AS i FROM n";
constexpr const char* kEndless =
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT max(i) AS i FROM n";
constexpr const char* kEndlessRows =
    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i FROM n";

std::string Encode(std::string_view text) {
    return web::uri::encode_data_string(std::string(text));
}

/// What a command writes.
std::string OutputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen((command + " 2>&1").c_str(), "r"), ::pclose);
    std::string text(10'000, '\0');
    text.resize(::fread(text.data(), 1, text.size(), output.get()));
    return text;
}

class CSQLRequestTest : public CQueryFixture {
 protected:
    void SetMaxConnections(std::uint32_t count) {
        const auto archive = m_localMachine->Create(L"SOFTWARE\\Quorbel\\Archive").Value();
        ASSERT_EQ(archive->Set(L"MaxConnections", CValue::FromNumber32(count)), ErrorCode::Success);
    }
};

TEST_F(CSQLRequestTest, OneQueryFileIsAnsweredInEveryForm) {
    RunSql(
        "CREATE TABLE item(id INTEGER PRIMARY KEY, title TEXT, done BOOLEAN, price NUMERIC(8,2), picture "
        "BLOB);"
        "INSERT INTO item VALUES (1, 'A & \"B\"', 1, 12.5, x'89504E47'), (2, NULL, 0, NULL, NULL)");
    Write("report.GET.sql", "SELECT id, title, done, price FROM item ORDER BY id");
    Write("picture.GET.sql", "SELECT picture FROM item WHERE id = @id");
    Serve();

    const CHttpReply asJson = Json("/report");
    EXPECT_EQ(
        asJson.body,
        R"([{"id":1,"title":"A & \"B\"","done":true,"price":12.5},{"id":2,"title":null,"done":false,"price":null}])");
    EXPECT_EQ(asJson.Header(L"Content-Type"), "application/json");
    EXPECT_EQ(asJson.Header(L"Cache-Control"), "no-store");
    EXPECT_EQ(asJson.Header(L"X-Content-Type-Options"), "nosniff");

    const CHttpReply asXml =
        Get(m_port, "/report", "Accept: text/html,application/xhtml+xml,application/xml;q=0.9\r\n");
    EXPECT_EQ(asXml.Header(L"Content-Type"), "text/xml");
    EXPECT_THAT(asXml.body, HasSubstr("href=\"/report.xslt\""));
    EXPECT_THAT(
        asXml.body,
        HasSubstr(
            "<row><id>1</id><title>A &amp; &quot;B&quot;</title><done>Tr</done><price>12.5</price></row>"));

    const CHttpReply stylesheet = Get(m_port, "/report.xslt");
    EXPECT_EQ(stylesheet.status, 200);
    EXPECT_THAT(stylesheet.body, HasSubstr("<th align=\"left\">title</th>"));

    const CHttpReply raw = Get(m_port, "/picture?id=1&Stream=image/png");
    EXPECT_EQ(raw.body, "\x89PNG");
    EXPECT_EQ(raw.Header(L"Content-Type"), "image/png");
    ExpectBareStatus(Get(m_port, "/picture?id=2&Stream=image/png"), 404);
    ExpectBareStatus(Get(m_port, "/picture?id=3&Stream=image/png"), 404);
    ExpectBareStatus(Get(m_port, "/report?Stream=image/png"), 500);
    ExpectBareStatus(Get(m_port, "/report", "Accept: text/html\r\n"), 415);
    ExpectBareStatus(Get(m_port, "/report"), 415);
}

TEST_F(CSQLRequestTest, ParametersComeFromTheSessionTheConfigurationTheFormAndTheQuery) {
    Write("who.GET.sql",
          "SELECT @Session$User AS u, @Session$Host AS h, @Registry$Application AS a, @name AS n, @[a%20b] "
          "AS e, @none AS x, @Accept AS y");
    Write("who.POST.sql", "SELECT @Registry$Application AS a, @name AS n, http_decode(@name) AS d, @q AS q");
    Write("headers.GET.sql", "SELECT CAST(@[Header$X-Test] AS BLOB) AS h");
    Serve({{L"Application", CValue::FromText(L"Archive")}});

    EXPECT_EQ(Rows("/who?name=c%20d%E2%82%AC&a%20b=%3D&Session$User=admin&Registry$Application=other").dump(),
              R"([{"a":"Archive","e":"=","h":"127.0.0.1","n":"c d€","u":"","x":null,"y":null}])");
    EXPECT_EQ(Post("/who?q=1", "name=J%C3%BCrgen+K&Registry%24Application=x&Registry$Application=y").body,
              R"([{"a":"Archive","n":"J%C3%BCrgen%20K","d":"Jürgen K","q":"1"}])");
    EXPECT_EQ(Get(m_port, "/headers?Stream=text/plain", "X-Test: value\r\n").body, "value");
}

TEST_F(CSQLRequestTest, ThousandsOfParametersAndHostileValuesArriveAsTheyWereSent) {
    Write("echo.GET.sql", "SELECT @v AS v");
    Write("echo.POST.sql", "SELECT length(http_decode(@v)) AS n");
    Serve();
    const char* values[] = {"",
                            "'; DROP TABLE x; --",
                            "\"\\/\b\f\n\t",
                            "\xE2\x80\xAE\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9",
                            "</script><![CDATA[",
                            "\xEF\xBF\xBE\xEF\xBF\xBF",
                            "1e400",
                            "@v $v :v ?1"};
    for (const char* value : values) {
        EXPECT_EQ(Rows("/echo?v=" + Encode(value)).at(0).at("v"), value) << value;
    }
    std::string many;
    for (int index = 0; index != 700; ++index) many += "p" + std::to_string(index) + "=1&";
    EXPECT_EQ(Rows("/echo?" + many + "v=x").at(0).at("v"), "x");
    EXPECT_EQ(Post("/echo", "v=" + std::string(1'000'000, 'x')).body, R"([{"n":1000000}])");
    std::string fields;
    for (int index = 0; index != 5000; ++index) fields += "p" + std::to_string(index) + "=1&";
    EXPECT_EQ(Post("/echo", fields + "v=x").body, R"([{"n":1}])");
    ExpectBareStatus(Post("/echo", fields + fields + "v=x"), 413);
}

TEST_F(CSQLRequestTest, ValuesOfEveryKindAreWhatStrictParsersAccept) {
    Write("all.GET.sql",
          "CREATE TEMP TABLE t(i2 SMALLINT, i4 INT, i8 INTEGER, r4 FLOAT4, r8 DOUBLE, n NUMERIC(20,4), b "
          "BOOLEAN, s TEXT, d DATE, v, x BLOB);"
          "INSERT INTO t VALUES (-32768, -2147483648, -9223372036854775807 - 1, 3.4028235e38, "
          "-1.7976931348623157e308,"
          " -9999999999999999.5, 1, char(34, 92, 47, 8, 9, 10, 12, 13, 127, 8232, 55357, 65533, 128512, "
          "1114111), '2026-02-30', 'text', x'00FF'),"
          "(32767, 2147483647, 9223372036854775807, 1e-45, 5e-324, 0.1, 0, '', '', 12.5, x''),"
          "(NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL),"
          "(40000, 3000000000, 1.5, 'x', 'x', 'x', 'x', 7, 7, -7, 'text'),"
          "(1, 1, 1, 1, 1, 12345678901234567890123, 2, CAST(x'EDA080C3' AS TEXT), 'a' || char(9) || "
          "'b', '<&>', x'0A');"
          "SELECT * FROM t");
    Write("infinite.GET.sql", "SELECT 9e999 AS a, -9e999 AS b");
    Serve();
    EXPECT_EQ(Json("/infinite").body, R"([{"a":1e999,"b":-1e999}])");
    const json rows = Rows("/all");
    ASSERT_EQ(rows.size(), 5U) << Json("/all").body;
    EXPECT_EQ(rows[0].at("i8"), INT64_MIN);
    EXPECT_EQ(rows[0].at("r8"), -1.797693134862314e308) << "rounded to 23 characters, and not up to infinity";
    EXPECT_EQ(rows[0].at("v"), "text");
    EXPECT_EQ(rows[0].at("x"), "00FF");
    EXPECT_EQ(rows[1].at("v"), 12.5);
    EXPECT_EQ(rows[2].size(), 11U);
    EXPECT_FALSE(rows[3].contains("i2")) << "a value that its column cannot hold is left out";
    EXPECT_EQ(rows[4].at("s"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD")
        << "what is no text becomes U+FFFD";

    std::ofstream(Path("all.xml"), std::ios::binary) << Get(m_port, "/all", "Accept: */*\r\n").body;
    EXPECT_THAT(OutputOf("xmllint --noout '" + Path("all.xml").string() + "'"),
                HasSubstr("PCDATA invalid Char value 8"))
        << "the backspace in a text, and nothing before it";
}

TEST_F(CSQLRequestTest, TheStylesheetShowsTheRowsAsATable) {
    Write("list.GET.sql",
          "CREATE TEMP TABLE t(id INT, title TEXT); INSERT INTO t VALUES (1, 'A <&> B'), (2, NULL); SELECT * "
          "FROM t");
    Serve();
    std::ofstream(Path("list.xml"), std::ios::binary) << Get(m_port, "/list", "Accept: */*\r\n").body;
    std::ofstream(Path("list.xslt"), std::ios::binary) << Get(m_port, "/list.xslt").body;
    std::string page =
        OutputOf("xsltproc '" + Path("list.xslt").string() + "' '" + Path("list.xml").string() + "'");
    std::erase_if(page, [](char character) { return character == '\n' || character == ' '; });
    EXPECT_EQ(page,
              "<html><body><table><trstyle=\"background-color:#EEEEEE\"><thalign=\"right\">id</"
              "th><thalign=\"left\">title</th></tr>"
              "<tr><tdalign=\"right\">1</td><tdalign=\"left\">A&lt;&amp;&gt;B</td></tr>"
              "<tr><tdalign=\"right\">2</td><tdalign=\"left\"></td></tr></table></body></html>");
}

TEST_F(CSQLRequestTest, TextsOfTenMegabytesPass) {
    RunSql("CREATE TABLE t(s TEXT); INSERT INTO t VALUES (replace(hex(zeroblob(2500000)), '00', 'ä€'))");
    Write("long.GET.sql", "SELECT s FROM t");
    Serve();
    const std::string text = Rows("/long").at(0).at("s");
    EXPECT_EQ(text.size(), 12'500'000U);
    EXPECT_EQ(text.substr(text.size() - 5), "ä€");
}

TEST_F(CSQLRequestTest, ACommandChoosesProvenanceAndHeaders) {
    Write("a.GET.sql",
          "SELECT http_provenance('manifest'), http_header('X-Test: a'), http_header('x-test:  b '), "
          "http_header('X-Empty:'), http_header('X-Empty: c'); SELECT 1 AS n");
    Write("b.GET.sql", "SELECT http_provenance('Unknown'), http_header('no colon')");
    Write("c.GET.sql", "SELECT http_header('Content-Length: 3')");
    Write("d.GET.sql", "SELECT http_header('X: a' || char(13, 10) || 'Y: b')");
    Serve();
    const CHttpReply a = Json("/a");
    EXPECT_EQ(a.body, R"([{"n":1}])");
    EXPECT_EQ(a.Header(L"Cache-Control"), "max-age=3600");
    EXPECT_EQ(a.Header(L"X-Test"), "a, b");
    EXPECT_EQ(a.Header(L"X-Empty"), ", c");
    ExpectBareStatus(Json("/c"), 500);
    ExpectBareStatus(Json("/d"), 500);
    EXPECT_NE(Json("/b").status, 200) << "a header without a name is an error of the file";
}

TEST_F(CSQLRequestTest, ACommandRunsScriptActions) {
    const std::string engine =
        "SELECT script_library('QbLua.so'), script_resource('function twice(x) return 2 * x end "
        "function fail() error(\"no way\") end function spin() while true do end end'); ";
    Write("twice.GET.sql", engine + "SELECT script_action('twice', @n + 0) AS n");
    Write("fail.GET.sql", engine + "SELECT script_action('fail') AS n");
    Write("spin.GET.sql", engine + "SELECT script_action('spin') AS n");
    Write("missing.GET.sql", "SELECT script_library('NoSuch.so'), script_action('x')");
    Serve();
    EXPECT_EQ(Json("/twice?n=21").body, R"([{"n":42}])");
    for (const char* target : {"/fail", "/spin", "/missing"}) ExpectBareStatus(Json(target), 500);
    const auto events = WithId(m_events.Take(), message::kCommandFailed);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_THAT(ToUtf8(events[0].strings.at(1)), HasSubstr("no way"));
}

TEST_F(CSQLRequestTest, WhatAQueryFileGetsWrongIsToldToTheOperatorAlone) {
    Write("broken.GET.sql", "SELECT secret FROM nowhere");
    Write("empty.GET.sql", "");
    Write("comment.GET.sql", "-- nothing\n;");
    Write("foreign.GET.sql", "SELECT ?1, :x");
    Write("zero.GET.sql", std::string_view("SELECT 1 AS n\0; SELECT 2", 24));
    Write("two.GET.sql", "SELECT 1, 2");
    Write("first.GET.sql", "SELECT abs(-9223372036854775807 - 1)");
    Write("ok.GET.sql", "\xEF\xBB\xBFSELECT 1 AS n");
    Serve();
    EXPECT_EQ(Rows("/ok").dump(), R"([{"n":1}])");
    for (const char* target :
         {"/broken", "/empty", "/comment", "/foreign", "/first", "/zero", "/two?Stream=a/b"}) {
        SCOPED_TRACE(target);
        ExpectBareStatus(Json(target), 500);
    }
    const auto events = WithId(m_events.Take(), message::kCommandFailed);
    ASSERT_EQ(events.size(), 7U);
    EXPECT_EQ(events[0].strings.at(0), L"SELECT secret FROM nowhere");
    EXPECT_THAT(ToUtf8(events[0].strings.at(1)), HasSubstr("nowhere"));
    EXPECT_THAT(ToUtf8(events[0].strings.at(2)), HasSubstr("broken.GET.sql"));
}

TEST_F(CSQLRequestTest, AQueryFileThatGoesOrChangesIsReadAnew) {
    Write("a.GET.sql", "SELECT 1 AS n");
    Serve();
    EXPECT_EQ(Json("/a").body, R"([{"n":1}])");
    Write("a.GET.sql", "SELECT 2 AS n");
    EXPECT_EQ(Json("/a").body, R"([{"n":2}])");
    std::filesystem::remove(Path("root/a.GET.sql"));
    EXPECT_EQ(Json("/a").status, 404);
    std::filesystem::create_directory(Path("root/a.GET.sql"));
    EXPECT_EQ(Json("/a").status, 404);
}

TEST_F(CSQLRequestTest, ABodyThatFailsHalfwayIsCutOff) {
    Write("a.GET.sql", kFailsAtRow10000);
    Serve();
    CHttpConnection connection(m_port);
    ASSERT_TRUE(connection.Send("GET /a HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/json\r\n\r\n"));
    std::string bytes;
    EXPECT_EQ(connection.ReceiveAll(bytes), CHttpConnection::End::Aborted);
    EXPECT_THAT(bytes, HasSubstr("HTTP/1.1 200"));
    EXPECT_THAT(bytes, Not(HasSubstr("\r\n0\r\n\r\n")));
    EXPECT_EQ(WithId(m_events.Take(), message::kCommandFailed).size(), 1U);
}

TEST_F(CSQLRequestTest, ADatabaseThatIsLockedMissingOrDamagedIsAFailureAndComesBack) {
    RunSql("CREATE TABLE t(n INTEGER)");
    Write("read.GET.sql", "SELECT count(*) AS n FROM t");
    Write("write.POST.sql", "INSERT INTO t VALUES (1); SELECT count(*) AS n FROM t");
    Serve();
    EXPECT_EQ(Post("/write", "a=b").body, R"([{"n":1}])");
    {
        sqlite3* other = nullptr;
        ASSERT_EQ(sqlite3_open(Path("archive.db").c_str(), &other), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
        ExpectBareStatus(Post("/write", "a=b"), 423);
        EXPECT_EQ(Json("/read").body, R"([{"n":1}])") << "readers do not mind";
        sqlite3_close(other);
    }
    EXPECT_EQ(Post("/write", "a=b").body, R"([{"n":2}])");

    std::filesystem::rename(Path("archive.db"), Path("away.db"));
    ExpectBareStatus(Json("/read"), 500);
    EXPECT_EQ(WithId(m_events.Take(), message::kDataSourceUnavailable).size(), 1U);
    std::ofstream(Path("archive.db")) << std::string(8192, 'x');
    ExpectBareStatus(Json("/read"), 500);
    std::filesystem::remove(Path("archive.db-wal"));
    std::filesystem::remove(Path("archive.db-shm"));
    std::filesystem::rename(Path("away.db"), Path("archive.db"));
    EXPECT_EQ(Json("/read").status, 200);
}

TEST_F(CSQLRequestTest, AQueryEndsWhenItsClientLeaves) {
    SetMaxConnections(1);
    Write("endless.GET.sql", kEndless);
    Write("rows.GET.sql", kEndlessRows);
    Write("ok.GET.sql", "SELECT 1 AS n");
    Serve();
    // The one connection to the database is free again only once the query has ended.
    for (const char* target : {"/endless", "/rows"}) {
        SCOPED_TRACE(target);
        CHttpConnection connection(m_port);
        ASSERT_TRUE(connection.Send(std::string("GET ") + target +
                                    " HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/json\r\n\r\n"));
        EXPECT_TRUE(target == std::string_view("/endless") || connection.WaitForBytes());
        connection.Leave();
        EXPECT_EQ(Json("/ok").body, R"([{"n":1}])");
    }
}

TEST_F(CSQLRequestTest, AThousandRequestsAtOnceAreAllAnswered) {
    RunSql("CREATE TABLE t(n INTEGER)");
    Write("slow.GET.sql",
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT 2000) SELECT count(*) AS n "
          "FROM n");
    Serve();
    constexpr int kClients = 1000;
    std::vector<std::unique_ptr<CHttpConnection>> connections;
    for (int index = 0; index != kClients; ++index) {
        connections.push_back(std::make_unique<CHttpConnection>(m_port));
        ASSERT_TRUE(connections.back()->Send(
            "GET /slow HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: application/json\r\n\r\n"));
    }
    int answered = 0;
    for (const auto& connection : connections) {
        const auto reply = connection->Receive();
        answered += reply && reply->status == 200 && reply->body == R"([{"n":2000}])" ? 1 : 0;
    }
    EXPECT_EQ(answered, kClients);
}

TEST_F(CSQLRequestTest, SlowQueriesStopNeitherQuickOnesNorFiles) {
    Write("endless.GET.sql", kEndless);
    Write("ok.GET.sql", "SELECT 1 AS n");
    Write("page.GET.txt", "page");
    Serve();
    std::vector<std::unique_ptr<CHttpConnection>> slow;
    const auto begin = [&](int count) {
        for (int index = 0; index != count; ++index) {
            slow.push_back(std::make_unique<CHttpConnection>(m_port));
            ASSERT_TRUE(slow.back()->Send("GET /endless HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\n\r\n"));
        }
    };
    begin(64);
    EXPECT_EQ(Json("/ok").body, R"([{"n":1}])");
    SetMaxConnections(1);
    begin(64);
    EXPECT_EQ(Get(m_port, "/page").body, "page") << "queries that wait leave threads to others";
}

}  // namespace

}  // namespace quorbel
