#include <barrier>
#include <clocale>
#include <fstream>
#include <gtest/gtest.h>

#include "components/provider/OdbcDatabase.h"
#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"
#include "tests/components/provider/OdbcRun.h"
#include "tests/support/PostgresServer.h"

namespace quorbel {
namespace {

using Type = CSqlColumn::Type;
using Rows = std::vector<std::string>;
using namespace std::literals;

std::unique_ptr<ISqlConnection> Connect(const std::wstring& database = L"postgres") {
    std::unique_ptr<ISqlConnection> connection;
    const auto source = OpenOdbcDatabase(CPostgresServer::Shared().ConnectionString(database));
    EXPECT_EQ(source->Connect(connection), S_OK) << ToUtf8(TakeErrorInfo());
    return connection;
}

CSqlArgument Text(std::wstring name, std::wstring_view text) {
    return {std::move(name), CVariant(text)};
}

/// Runs a command that has to work.
Rows Get(ISqlConnection& connection, std::wstring_view text,
         const std::vector<CSqlArgument>& arguments = {}) {
    const COdbcOutcome outcome = RunOdbc(connection, text, arguments);
    EXPECT_EQ(outcome.result, S_OK) << ToUtf8(text) << ": " << ToUtf8(outcome.description);
    return outcome.rows;
}

TEST(Odbc, GivesEachTypeOfTheServerAsOneOfItsOwn) {
    struct CCase {
        std::wstring_view expression;
        Type type;
        std::string value;
        int precision = 255;
        int scale = 255;
    };
    const CCase cases[] = {
        {L"(-32768)::smallint", Type::I2, "I-32768"},
        {L"(-2147483648)::integer", Type::I4, "I-2147483648"},
        {L"(-9223372036854775808)::bigint", Type::I8, "I-9223372036854775808"},
        {L"4294967295::oid", Type::I8, "I4294967295"},
        {L"0.5::real", Type::R4, "R0.5"},
        {L"0.1::double precision", Type::R8, "R0.10000000000000001"},
        {L"'-infinity'::double precision", Type::R8, "R-inf"},
        {L"'NaN'::double precision", Type::R8, "TNaN"},
        {L"5e-324::double precision", Type::R8, "R4.9406564584124654e-324"},
        {L"1.50::numeric(10,3)", Type::Numeric, "D1.500", 10, 3},
        {L"99999999999999999999::numeric(20,0)", Type::Numeric, "D99999999999999999999", 20, 0},
        {L"1.5::numeric(21,1)", Type::Variant, "D1.5"},
        {L"1e40::numeric", Type::Variant, "D1" + std::string(40, '0')},
        {L"'NaN'::numeric", Type::Variant, "TNaN"},
        {L"sum(1::bigint)", Type::Variant, "D1"},
        {L"true", Type::Bool, "B1"},
        {L"1 = 2", Type::Bool, "B0"},
        {L"null::boolean", Type::Bool, "N"},
        {L"'h\u00e9\U0001F600\x1f'::text", Type::Text, "Th\xC3\xA9\xF0\x9F\x98\x80\x1F"},
        {L"'a\r\nb\\'", Type::Text, "Ta\r\nb\\"},
        {L"''::varchar(5)", Type::Text, "T"},
        {L"null::text", Type::Text, "N"},
        {L"null", Type::Text, "N"},
        {L"'ab'::char(4)", Type::Text, "Tab  "},
        {L"'2024-02-29'::date", Type::Text, "T2024-02-29"},
        {L"'0044-03-15 BC'::date", Type::Text, "T0044-03-15 BC"},
        {L"'infinity'::date", Type::Text, "Tinfinity"},
        {L"'24:00:00'::time", Type::Text, "T24:00:00"},
        {L"'12:00:00.120'::time", Type::Text, "T12:00:00.12"},
        {L"'12:00+02'::timetz", Type::Text, "T12:00:00+02"},
        {L"'12345-01-01'::timestamp", Type::Text, "T12345-01-01 00:00:00"},
        {L"'2024-01-02 03:04:05.678901+02'::timestamptz", Type::Text, "T2024-01-02 01:04:05.678901+00"},
        {L"null::timestamptz", Type::Text, "N"},
        {L"interval '1 day 2 hours'", Type::Text, "T1 day 02:00:00"},
        {L"12.34::money", Type::Text, "T$12.34"},
        {L"'A0EEBC99-9C0B-4EF8-BB6D-6BB9BD380A11'::uuid", Type::Text,
         "Ta0eebc99-9c0b-4ef8-bb6d-6bb9bd380a11"},
        {L"'{\"a\": 1}'::json", Type::Text, "T{\"a\": 1}"},
        {L"'{\"a\":  1}'::jsonb", Type::Text, "T{\"a\": 1}"},
        {L"array[1,2,null]", Type::Text, "T{1,2,NULL}"},
        {L"b'101'", Type::Text, "T101"},
        {L"point(1,2)", Type::Text, "T(1,2)"},
        {L"'\\x00ff10'::bytea", Type::Variant, "X00FF10"},
        {L"''::bytea", Type::Variant, "X"},
    };
    const auto connection = Connect();
    for (const CCase& one : cases) {
        const COdbcOutcome outcome =
            RunOdbc(*connection, L"SELECT " + std::wstring(one.expression) + L" AS \"n\u00e4me\"");
        const std::string shown = ToUtf8(one.expression);
        ASSERT_EQ(outcome.result, S_OK) << shown << ToUtf8(outcome.description);
        ASSERT_EQ(outcome.columns.size(), 1u) << shown;
        EXPECT_EQ(outcome.columns[0].name, L"n\u00e4me");
        EXPECT_EQ(static_cast<int>(outcome.columns[0].type), static_cast<int>(one.type)) << shown;
        EXPECT_EQ(outcome.columns[0].precision, one.precision) << shown;
        EXPECT_EQ(outcome.columns[0].scale, one.scale) << shown;
        EXPECT_EQ(outcome.rows, Rows{one.value}) << shown;
    }
}

TEST(Odbc, ComparesParametersWithWhateverTypeTheColumnHas) {
    const struct {
        std::wstring_view text;
        std::vector<CSqlArgument> arguments;
        Rows rows;
    } cases[] = {
        {L"SELECT n FROM p WHERE n = @a", {Text(L"a", L"1")}, {"I1"}},
        {L"SELECT n FROM p WHERE day = @a AND flag = @b",
         {Text(L"a", L"2024-02-29"), Text(L"b", L"true")},
         {"I1"}},
        {L"SELECT n FROM p WHERE flag = @a", {{L"a", CVariant::FromBool(true)}}, {"I1"}},
        {L"SELECT n FROM p WHERE d = @a", {{L"a", CVariant::FromR8(0.1)}}, {"I1"}},
        {L"SELECT n FROM p WHERE list = @a", {Text(L"a", L"{1,2}")}, {"I1"}},
        {L"SELECT n FROM p LIMIT @a", {Text(L"a", L"0")}, {}},
        {L"SELECT @a + 1", {{L"a", CVariant::FromI4(41)}}, {"I42"}},
        {L"SELECT @a + 1", {{L"a", CVariant::FromI4(-41)}}, {"I-40"}},
        {L"SELECT jsonb_build_object('a', @a)", {Text(L"a", L"x'y\\z\"")}, {R"(T{"a": "x'y\\z\""})"}},
        {L"SELECT @a, @a || @b", {Text(L"a", L"1"), Text(L"b", L"2"), Text(L"a", L"3")}, {"T1|T12"}},
        {L"SELECT @nobody IS NULL, coalesce(@a, 'none')", {{L"a", CVariant::Null()}}, {"B1|Tnone"}},
        {L"SELECT length(@a), @a = ''", {Text(L"a", L"")}, {"I0|B1"}},
        {L"SELECT @a", {Text(L"a", L"\u00e9\U0001F600\u20ac")}, {"T\xC3\xA9\xF0\x9F\x98\x80\xE2\x82\xAC"}},
        {L"SELECT @a", {Text(L"a", L"'; DROP TABLE p; --")}, {"T'; DROP TABLE p; --"}},
        {L"SELECT @a", {Text(L"a", L"\\' OR 1=1 --")}, {"T\\' OR 1=1 --"}},
        {L"SET standard_conforming_strings = off; SELECT @a",
         {Text(L"a", L"\\' OR 1=1 --")},
         {"T\\' OR 1=1 --"}},
        {L"SELECT @[a b], '@a', \"@a\" FROM (SELECT 1 AS \"@a\") t", {Text(L"a b", L"?")}, {"T?|T@a|I1"}},
        {L"SELECT http_decode(@a), @a", {Text(L"a", L"a%20b+c")}, {"Ta b c|Ta%20b+c"}},
    };
    const auto connection = Connect();
    Get(*connection,
        L"DROP TABLE IF EXISTS p; CREATE TABLE p (n int, day date, flag boolean, d float8, list int[]);"
        L"INSERT INTO p VALUES (1, '2024-02-29', true, 0.1, '{1,2}')");
    for (const auto& one : cases) {
        EXPECT_EQ(Get(*connection, one.text, one.arguments), one.rows) << ToUtf8(one.text);
        ASSERT_TRUE(connection->Reset());
    }
    const COdbcOutcome refused = RunOdbc(*connection, L"SELECT @a", {Text(L"a", L"x\0y"sv)});
    EXPECT_EQ(refused.result, DB_E_ERRORSINCOMMAND);
    EXPECT_NE(refused.description.find(L"zero character"), std::wstring::npos);
}

TEST(Odbc, PassesLongTextsAndBytesBothWays) {
    const auto connection = Connect();
    std::wstring text;
    for (int i = 0; i < 1'000'000; ++i) text += L"0123456\u00e9\U0001F600'";
    const Rows rows = Get(*connection, L"SELECT @a, decode(repeat('00ff', 2000000), 'hex'), length(@a)",
                          {Text(L"a", text)});
    ASSERT_EQ(rows.size(), 1u);
    std::string bytes = "X";
    for (int i = 0; i < 2'000'000; ++i) bytes += "00FF";
    EXPECT_TRUE(rows[0] == "T" + ToUtf8(text) + "|" + bytes + "|I10000000") << rows[0].size();
}

TEST(Odbc, ReadsAndWritesTextsOfADatabaseWithAnotherEncodingInAnyLocale) {
    const auto connection = Connect();
    // No transaction can make a database, so a command cannot.
    EXPECT_EQ(RunOdbc(*connection, L"CREATE DATABASE x").result, DB_E_ERRORSINCOMMAND);
    CPostgresServer::Shared().CreateDatabase("latin", "LATIN1");
    const auto latin = Connect(L"latin");
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(Get(*latin, L"SELECT @a || '\u00fc', current_date > '2000-01-01'", {Text(L"a", L"\u00e9")}),
                  Rows{"T\xC3\xA9\xC3\xBC|B1"});
        EXPECT_EQ(RunOdbc(*latin, L"SELECT @a", {Text(L"a", L"\u20ac")}).result, DB_E_ERRORSINCOMMAND)
            << "the database has no such character";
        ASSERT_TRUE(latin->Reset());
    }
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C") << "the driver must leave the process's locale alone";
}

TEST(Odbc, RunsAllStatementsOfACommandOrNone) {
    struct CCase {
        std::wstring_view text;
        HRESULT result;
        Rows rows;
        std::string_view left;  // what the table then holds
    };
    const CCase cases[] = {
        {L"INSERT INTO w VALUES (1); INSERT INTO w VALUES (2) RETURNING n, t",
         S_OK,
         {"I2|T2024-01-02 00:00:00+00"},
         "1,2"},
        {L"INSERT INTO w VALUES (1); SELECT n, t FROM w", S_OK, {"I1|T2024-01-02 00:00:00+00"}, "1"},
        {L"INSERT INTO w VALUES (1); INSERT INTO w VALUES (1/0)", DB_E_ERRORSINCOMMAND, {}, ""},
        {L"INSERT INTO w VALUES (1); SELECT 1/0", DB_E_ERRORSINCOMMAND, {}, ""},
        {L"INSERT INTO w VALUES (1); SELECT 1/(500-g) FROM generate_series(1,1000) g",
         DB_E_ERRORSINCOMMAND,
         {},
         ""},
        {L"INSERT INTO w VALUES (1), (1)", DB_E_ERRORSINCOMMAND, {}, ""},
        {L"INSERT INTO w VALUES (1); SELECT 1 FROM w WHERE http_header('a: b')",
         DB_E_ERRORSINCOMMAND,
         {},
         ""},
        {L"SELECT add(1)", S_OK, {"I1"}, "1"},
        {L"SELECT add(1), now() > '2000-01-01'", S_OK, {"I1|B1"}, "1"},
        {L"SELECT add(1), '2024-01-01'::date", S_OK, {"I1|T2024-01-01"}, "1"},
        {L"SELECT add(1); SELECT add(2)", S_OK, {"I2"}, "1,2"},
        {L"SELECT add(1); SELECT add(1)", DB_E_ERRORSINCOMMAND, {}, ""},
        {L"WITH i AS (INSERT INTO w VALUES (1) RETURNING n) SELECT n FROM i", S_OK, {"I1"}, "1"},
        {L"SELECT 1; WITH i AS (INSERT INTO w VALUES (1) RETURNING n) SELECT n FROM i", S_OK, {"I1"}, "1"},
        {L"INSERT INTO w VALUES (1); SELECT n FROM w FOR UPDATE", S_OK, {"I1"}, "1"},
        {L"INSERT INTO w VALUES (1) RETURNING n -- all", S_OK, {"I1"}, "1"},
        {L"SELECT t FROM w -- none", S_OK, {}, ""},
        {L"CREATE TABLE w2 (n int); INSERT INTO w2 VALUES (1); DROP TABLE w2; SHOW datestyle",
         S_OK,
         {"TISO, MDY"},
         ""},
        {L"DO $$ BEGIN INSERT INTO w VALUES (1); INSERT INTO w VALUES (2); END $$", S_OK, {}, "1,2"},
    };
    const auto connection = Connect();
    const auto observer = Connect();
    Get(*connection,
        L"DROP TABLE IF EXISTS w; CREATE TABLE w (n int UNIQUE DEFERRABLE INITIALLY DEFERRED,"
        L" t timestamptz DEFAULT '2024-01-02');"
        L"CREATE OR REPLACE FUNCTION add(x int) RETURNS int LANGUAGE sql AS 'INSERT INTO w VALUES (x) "
        L"RETURNING n'");
    for (const CCase& one : cases) {
        const COdbcOutcome outcome = RunOdbc(*connection, one.text);
        EXPECT_EQ(outcome.result, one.result) << ToUtf8(one.text) << ": " << ToUtf8(outcome.description);
        EXPECT_EQ(outcome.description.empty(), Succeeded(one.result)) << ToUtf8(one.text);
        if (Succeeded(one.result)) {
            EXPECT_EQ(outcome.rows, one.rows) << ToUtf8(one.text);
        }
        EXPECT_EQ(Get(*observer, L"SELECT coalesce(string_agg(n::text, ',' ORDER BY n), '') FROM w"),
                  Rows{"T" + std::string(one.left)})
            << ToUtf8(one.text);
        EXPECT_TRUE(connection->Reset()) << ToUtf8(one.text);
        Get(*observer, L"TRUNCATE w");
        ASSERT_TRUE(observer->Reset());
    }
}

/// Bytes of memory that the process has needed at most; always 0 with a sanitizer, which keeps what was
/// freed.
std::size_t PeakMemory() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) * 1024;
    }
    ADD_FAILURE() << "the system does not say how much memory is in use";
#endif
    return 0;
}

TEST(Odbc, NeedsLittleMemoryForManyRows) {
    const auto connection = Connect();
    CRecordingFunctions functions;
    for (const std::wstring_view earlier : {L"", L"SELECT 1;"}) {
        std::unique_ptr<ISqlRows> rows;
        const std::size_t before = PeakMemory();
        ASSERT_EQ(
            OpenOdbc(*connection,
                     std::wstring(earlier) + L"SELECT g, repeat('x', 1000) FROM generate_series(1, 150000) g",
                     functions, rows),
            S_OK);
        std::size_t count = 0;
        while (rows->Next() == S_OK) ++count;
        EXPECT_EQ(count, 150000u);
        EXPECT_LT(PeakMemory() - before, 24u << 20) << "of 150 MB that were read";
        rows.reset();
        ASSERT_TRUE(connection->Reset());
    }
}

TEST(Odbc, RefusesAChangeThatReturnsMoreThanIsKept) {
    const auto connection = Connect();
    Get(*connection, L"DROP TABLE IF EXISTS big; CREATE TABLE big (t text)");
    const COdbcOutcome outcome = RunOdbc(
        *connection, L"INSERT INTO big SELECT repeat('x', 1000000) FROM generate_series(1, 70) RETURNING t");
    EXPECT_EQ(outcome.result, DB_E_ERRORSINCOMMAND);
    EXPECT_NE(outcome.description.find(L"more memory"), std::wstring::npos);
    EXPECT_EQ(Get(*connection, L"SELECT count(*) FROM big"), Rows{"I0"});
}

/// Waits until the server sleeps in a statement of another connection.
void WaitUntilSleeping() {
    const auto observer = Connect();
    while (Get(*observer, L"SELECT 1 FROM pg_stat_activity WHERE wait_event = 'PgSleep'").empty()) {
        ASSERT_TRUE(observer->Reset());
    }
}

TEST(Odbc, EndsWhatRunsWhenItIsCancelledAndWorksAgainAfterReset) {
    const std::wstring_view cases[] = {
        L"SELECT pg_sleep(60)",
        L"SELECT 1; SELECT pg_sleep(60); SELECT 2",
        L"SELECT 1; SELECT pg_sleep(60)",
        L"CREATE TABLE sleepy AS SELECT 1 FROM pg_sleep(60)",
    };
    const auto connection = Connect();
    for (const std::wstring_view text : cases) {
        std::thread canceller([&] {
            WaitUntilSleeping();
            connection->Cancel();
            connection->Cancel();
        });
        EXPECT_EQ(RunOdbc(*connection, text).result, DB_E_CANCELED) << ToUtf8(text);
        canceller.join();
        EXPECT_EQ(RunOdbc(*connection, L"SELECT 1").result, DB_E_CANCELED) << "it counts until Reset";
        ASSERT_TRUE(connection->Reset());
        EXPECT_EQ(Get(*connection, L"SELECT 1"), Rows{"I1"});
    }
}

TEST(Odbc, IsCancelledWheneverCancelComes) {
    const auto connection = Connect();
    for (int round = 0; round < 40; ++round) {
        std::barrier<> start(2);
        std::thread canceller([&] {
            start.arrive_and_wait();
            for (int i = 0; i < round * 50; ++i) std::this_thread::yield();
            connection->Cancel();
        });
        start.arrive_and_wait();
        const COdbcOutcome outcome = RunOdbc(*connection, L"SELECT pg_sleep(60)");
        EXPECT_EQ(outcome.result, DB_E_CANCELED) << ToUtf8(outcome.description);
        canceller.join();
        ASSERT_TRUE(connection->Reset());
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(Get(*connection, L"SELECT 1"), Rows{"I1"}) << "no late cancellation";
        ASSERT_TRUE(connection->Reset());
    }
}

TEST(Odbc, EndsReadingWhenItIsCancelledBetweenRows) {
    const auto connection = Connect();
    CRecordingFunctions functions;
    std::unique_ptr<ISqlRows> rows;
    ASSERT_EQ(OpenOdbc(*connection, L"SELECT g FROM generate_series(1, 100000) g", functions, rows), S_OK);
    ASSERT_EQ(rows->Next(), S_OK);
    connection->Cancel();
    EXPECT_EQ(rows->Next(), DB_E_CANCELED);
    rows.reset();
    ASSERT_TRUE(connection->Reset());
    EXPECT_EQ(Get(*connection, L"SELECT 1"), Rows{"I1"});
}

TEST(Odbc, TakesBackWhatACommandLeftOnTheConnection) {
    const std::pair<std::wstring_view, std::wstring_view> cases[] = {
        {L"CREATE TEMP TABLE left_over (n int)",
         L"SELECT count(*) FROM pg_class WHERE relname = 'left_over'"},
        {L"SET work_mem = '123kB'",
         L"SELECT count(*) FROM pg_settings WHERE name = 'work_mem' AND setting = '123'"},
        {L"SELECT set_config('app.user', 'x', false)",
         L"SELECT count(*) WHERE current_setting('app.user', true) = 'x'"},
        {L"SELECT pg_advisory_lock(7)", L"SELECT count(*) FROM pg_locks WHERE locktype = 'advisory'"},
        {L"LISTEN news", L"SELECT count(*) FROM pg_listening_channels()"},
        {L"SELECT 1; SELECT g FROM generate_series(1, 10000) g",
         L"SELECT count(*) FROM pg_cursors WHERE is_holdable"},
        {L"DECLARE mine CURSOR WITH HOLD FOR SELECT 1",
         L"SELECT count(*) FROM pg_cursors WHERE name = 'mine'"},
        {L"SET SESSION CHARACTERISTICS AS TRANSACTION READ ONLY",
         L"SELECT count(*) WHERE current_setting('default_transaction_read_only') = 'on'"},
        {L"SET client_encoding TO 'LATIN1'",
         L"SELECT count(*) WHERE current_setting('client_encoding') <> 'UTF8'"},
        {L"SET DateStyle TO 'SQL, DMY'",
         L"SELECT count(*) WHERE current_setting('DateStyle') NOT LIKE 'ISO%'"},
    };
    const auto connection = Connect();
    CRecordingFunctions functions;
    for (const auto& [text, probe] : cases) {
        std::unique_ptr<ISqlRows> rows;
        ASSERT_EQ(OpenOdbc(*connection, text, functions, rows), S_OK) << ToUtf8(TakeErrorInfo());
        Ignore(rows->Next());
        rows.reset();
        ASSERT_TRUE(connection->Reset()) << ToUtf8(text);
        EXPECT_EQ(Get(*connection, probe), Rows{"I0"}) << ToUtf8(text);
        ASSERT_TRUE(connection->Reset());
    }
}

TEST(Odbc, SaysWhenAConnectionIsLostSoThatItIsReplaced) {
    const auto connection = Connect();
    EXPECT_EQ(Get(*connection, L"SELECT 1"), Rows{"I1"});
    CPostgresServer::Shared().Restart();
    const COdbcOutcome outcome = RunOdbc(*connection, L"SELECT 1");
    EXPECT_EQ(outcome.result, E_FAIL);
    EXPECT_NE(outcome.description, L"");
    EXPECT_FALSE(connection->Reset());
    EXPECT_EQ(Get(*Connect(), L"SELECT 1"), Rows{"I1"});
}

TEST(Odbc, DescribesWhyItCannotConnectWithoutThePassword) {
    const auto& server = CPostgresServer::Shared();
    const std::wstring cases[] = {
        server.ConnectionString(L"postgres", L"guarded") + L";Pwd=secret5",
        server.ConnectionString(L"nothere") + L";Pwd=secret5",
        L"Driver=No Such Driver;Pwd=secret5",
        L"Driver=PostgreSQL Unicode;Server=/nothere;Uid=x;Pwd=secret5",
        L"secret5",
    };
    for (const std::wstring& text : cases) {
        std::unique_ptr<ISqlConnection> connection;
        EXPECT_EQ(OpenOdbcDatabase(text)->Connect(connection), E_FAIL);
        EXPECT_EQ(connection, nullptr);
        const std::wstring description = TakeErrorInfo();
        EXPECT_NE(description, L"") << ToUtf8(text);
        EXPECT_EQ(description.find(L"secret5"), std::wstring::npos) << ToUtf8(description);
    }
}

TEST(Odbc, TranslatesTheServersFailures) {
    const std::pair<std::wstring_view, HRESULT> cases[] = {
        {L"55P03", HResultFromWin32(32)}, {L"40001", HResultFromWin32(32)},
        {L"40P01", HResultFromWin32(32)}, {L"53100", HResultFromWin32(112)},
        {L"57014", DB_E_ERRORSINCOMMAND}, {L"23505", DB_E_ERRORSINCOMMAND},
        {L"42601", DB_E_ERRORSINCOMMAND}, {L"08006", E_FAIL},
    };
    for (const auto& [state, result] : cases) {
        const auto connection = Connect();
        const COdbcOutcome outcome =
            RunOdbc(*connection, L"DO $$ BEGIN RAISE EXCEPTION 'told so' USING ERRCODE = '" +
                                     std::wstring(state) + L"'; END $$");
        EXPECT_EQ(outcome.result, result) << ToUtf8(state);
        EXPECT_NE(outcome.description.find(L"told so"), std::wstring::npos) << ToUtf8(outcome.description);
        EXPECT_NE(outcome.description.find(state), std::wstring::npos) << ToUtf8(outcome.description);
    }
}

TEST(Odbc, CarriesOutActionsAmongStatementsOfTheServer) {
    const auto connection = Connect();
    Get(*connection, L"DROP TABLE IF EXISTS f; CREATE TABLE f (n int)");
    CRecordingFunctions functions;
    const COdbcOutcome last =
        RunOdbc(*connection, L"INSERT INTO f VALUES (2); SELECT script_action('f', 7) AS a", {}, functions);
    EXPECT_EQ(last.rows, Rows{"I7"}) << ToUtf8(last.description);
    EXPECT_EQ(functions.calls, std::vector<std::wstring>{L"action f 20"});
    ASSERT_TRUE(connection->Reset());
    EXPECT_EQ(Get(*connection, L"SELECT count(*) FROM f"), Rows{"I1"});
}

TEST(Odbc, ServesManyConnectionsAtOnceAndLeavesNone) {
    {
        const auto database = OpenOdbcDatabase(CPostgresServer::Shared().ConnectionString());
        std::vector<std::thread> threads;
        std::atomic<int> right = 0;
        for (int number = 0; number < 64; ++number) {
            threads.emplace_back([&, number] {
                std::unique_ptr<ISqlConnection> connection;
                if (!Succeeded(database->Connect(connection))) return;
                const std::wstring name = std::to_wstring(number);
                for (int round = 0; round < 10; ++round) {
                    const COdbcOutcome outcome =
                        RunOdbc(*connection, L"SELECT @a::int, count(*) FROM generate_series(1, 700)",
                                {Text(L"a", name)});
                    if (outcome.rows == Rows{"I" + ToUtf8(name) + "|I700"} && connection->Reset()) ++right;
                }
            });
        }
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(right, 640);
    }
    const auto observer = Connect();
    // The server takes a moment to see that they have gone.
    while (Get(*observer,
               L"SELECT 1 FROM pg_stat_activity WHERE backend_type = 'client backend' AND pid <> "
               L"pg_backend_pid()")
               .size() > 0) {
        ASSERT_TRUE(observer->Reset());
    }
}

}  // namespace
}  // namespace quorbel
