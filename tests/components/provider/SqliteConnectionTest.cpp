#include <sqlite3.h>
#include <thread>

#include "components/oledb/ByteStream.h"
#include "components/provider/SqliteConnection.h"
#include "components/provider/SqliteDatabase.h"
#include "tests/components/provider/SqlRun.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using Rows = std::vector<std::string>;
using namespace std::literals;

constexpr HRESULT kLocked = HResultFromWin32(32);
constexpr HRESULT kFull = HResultFromWin32(112);

class SqliteConnectionTest : public testing::Test {
 protected:
    SqliteConnectionTest() {
        WriteFile(path, "");
        connection = Connect();
        EXPECT_EQ(RunSql(*connection, L"PRAGMA journal_mode=WAL").result, S_OK);
        EXPECT_FALSE(connection->Reset()) << "after a PRAGMA it is not fit for others";
        connection = Connect();
        EXPECT_EQ(RunSql(*connection, L"CREATE TABLE t(a INTEGER PRIMARY KEY, b TEXT UNIQUE)").result, S_OK);
    }

    std::unique_ptr<ISqlConnection> Connect(const CSqliteOptions& options = {20ms}) {
        std::unique_ptr<ISqlConnection> opened;
        EXPECT_EQ(OpenSqliteDatabase(FromUtf8(path.native()), options)->Connect(opened), S_OK)
            << ToUtf8(TakeErrorInfo());
        return opened;
    }
    Rows Content() { return RunSql(*Connect(), L"SELECT * FROM t ORDER BY a").rows; }

    CTemporaryFolder folder;
    std::filesystem::path path = folder / "archive.db";
    std::unique_ptr<ISqlConnection> connection;
};

TEST_F(SqliteConnectionTest, BindsParametersOfEveryTypeByName) {
    const auto blob = MakeByteStream("\0\xFF"sv);
    const std::vector<CSqlArgument> arguments = {
        {L"text", CVariant(L"\u00e4\0'\U0001F600"sv)},
        {L"text", CVariant(L"a second one of its name")},
        {L"i2", CVariant::FromI2(-5)},
        {L"i4", CVariant::FromI4(70000)},
        {L"i8", CVariant::FromI8(INT64_MIN)},
        {L"r4", CVariant::FromR4(0.5F)},
        {L"r8", CVariant::FromR8(1e300)},
        {L"bool", CVariant::FromBool(true)},
        {L"null", CVariant::Null()},
        {L"blob", CVariant::FromUnknown(CComPtr<IUnknown>(blob.Get()))},
        {L"any name", CVariant(L"\xD800")},
        {L"not used", CVariant(L"")},
    };
    EXPECT_EQ(
        RunSql(*connection, L"SELECT @text,@i2,@i4,@i8,@r4,@r8,@bool,@null,@blob,@[any name],@absent,@Text",
               arguments)
            .rows,
        Rows{"\u00e4\0'\U0001F600|-5|70000|-9223372036854775808|0.5|1e+300|1|NULL|x'00FF'|\uFFFD|"
             "NULL|NULL"s});
    EXPECT_EQ(RunSql(*connection, L"SELECT @i2+@[i4]1", arguments).result, DB_E_ERRORSINCOMMAND)
        << "a digit behind a parameter belongs to it";
}

TEST_F(SqliteConnectionTest, RunsAllStatementsOrNone) {
    const std::tuple<std::wstring_view, HRESULT, std::string_view> cases[] = {
        {L"INSERT INTO t VALUES(1,'a'); INSERT INTO t VALUES(2,'a'); SELECT 1", DB_E_ERRORSINCOMMAND,
         "UNIQUE constraint failed: t.b (line 1)"},
        {L"INSERT INTO t VALUES(1,'a');\nSELECT * FROM missing", DB_E_ERRORSINCOMMAND,
         "no such table: missing (line 2)"},
        {L"INSERT INTO t VALUES(1,'a');\n\nSELECT 1,\nFORM", DB_E_ERRORSINCOMMAND,
         "no such column: FORM (line 4)"},
        {L"INSERT INTO t VALUES(1,'a'); SELECT json('broken')", DB_E_ERRORSINCOMMAND,
         "malformed JSON (line 1)"},
        {L"INSERT INTO t VALUES(1,'a'); INSERT OR ROLLBACK INTO t VALUES(1,'a'); SELECT 1",
         DB_E_ERRORSINCOMMAND, "UNIQUE constraint failed: t.a (line 1)"},
        {L"CREATE TABLE u(x REFERENCES t DEFERRABLE INITIALLY DEFERRED); INSERT INTO u VALUES(9)",
         DB_E_ERRORSINCOMMAND, "FOREIGN KEY constraint failed"},
        {L"INSERT INTO t VALUES(1,'a'); PRAGMA max_page_count=1; INSERT INTO t VALUES(2,zeroblob(100000))",
         kFull, "database or disk is full (line 1)"},
    };
    for (const auto& [text, result, description] : cases) {
        const CSqlOutcome outcome = RunSql(*connection, text);
        EXPECT_EQ(outcome.result, result) << ToUtf8(text);
        EXPECT_EQ(ToUtf8(outcome.description), description);
        if (!connection->Reset()) connection = Connect();
        EXPECT_EQ(Content(), Rows()) << ToUtf8(text);
        EXPECT_EQ(RunSql(*connection, L"SELECT * FROM u").result, DB_E_ERRORSINCOMMAND);
    }
}

TEST_F(SqliteConnectionTest, LetsLaterStatementsUseWhatEarlierOnesMade) {
    const std::pair<std::wstring_view, Rows> cases[] = {
        {L"CREATE TABLE v(x); INSERT INTO v VALUES(1),(2); SELECT sum(x) FROM v", {"3"}},
        {L"CREATE TEMP TABLE w AS SELECT 5 x; INSERT INTO w VALUES(6); SELECT x FROM w", {"5", "6"}},
        {L"INSERT INTO t VALUES(1,'a'); INSERT INTO t VALUES(2,'b') RETURNING a, b", {"2|b"}},
        {L"CREATE TRIGGER g AFTER INSERT ON v BEGIN DELETE FROM v; INSERT INTO v VALUES(7); END;"
         L"INSERT INTO v VALUES(1); SELECT * FROM v",
         {"7"}},
        {L"INSERT INTO t VALUES(3,'c')", {}},
    };
    for (const auto& [text, rows] : cases) {
        const CSqlOutcome outcome = RunSql(*connection, text);
        EXPECT_EQ(outcome.result, S_OK) << ToUtf8(text) << ToUtf8(outcome.description);
        EXPECT_EQ(outcome.rows, rows) << ToUtf8(text);
        if (!connection->Reset()) connection = Connect();
    }
    EXPECT_EQ(Content(), (Rows{"1|a", "2|b", "3|c"}));
}

TEST_F(SqliteConnectionTest, BoundsTheRowsOfWritingStatements) {
    CSqliteOptions options;
    options.mostKeptBytes = 10'000;
    const auto bounded = Connect(options);
    const auto insert = [&](int size) {
        return RunSql(*bounded, L"INSERT INTO t VALUES(1,printf('%*c',@size,'x')) RETURNING b",
                      {{L"size", CVariant::FromI4(size)}});
    };
    EXPECT_EQ(insert(10'000).result, DB_E_ERRORSINCOMMAND);
    EXPECT_EQ(Content(), Rows());
    EXPECT_EQ(insert(5'000).rows.at(0).size(), 5'000U);
}

TEST_F(SqliteConnectionTest, RefusesWhatIsNotACommandsToDo) {
    for (const std::wstring_view text :
         {L"BEGIN", L"COMMIT", L"SELECT 1; ROLLBACK", L"SAVEPOINT s; SELECT 1",
          L"INSERT INTO t(a) VALUES(1); COMMIT", L"ATTACH ':memory:' AS m", L"DETACH main", L"VACUUM",
          L"SELECT load_extension('x')", L"PRAGMA writable_schema=1; DELETE FROM sqlite_schema",
          L"PRAGMA Hard_Heap_Limit=200000", L"PRAGMA soft_heap_limit=1",
          L"PRAGMA temp_store_directory='/tmp'"}) {
        EXPECT_FALSE(Succeeded(RunSql(*connection, text).result)) << ToUtf8(text);
        if (!connection->Reset()) connection = Connect();
    }
    EXPECT_EQ(Content(), Rows());
}

TEST_F(SqliteConnectionTest, LeavesNothingOfACommandBehind) {
    ASSERT_EQ(RunSql(*connection, L"INSERT INTO t VALUES(41,'x')").result, S_OK);
    ASSERT_TRUE(connection->Reset());
    EXPECT_EQ(RunSql(*connection, L"SELECT last_insert_rowid()").rows, Rows{"0"});
    EXPECT_TRUE(connection->Reset());
    for (const std::wstring_view text :
         {L"CREATE TEMP TABLE x(a)", L"CREATE TEMP VIEW x AS SELECT 1", L"PRAGMA case_sensitive_like=1",
          L"CREATE TEMP TRIGGER x DELETE ON t BEGIN SELECT 1; END",
          L"CREATE VIRTUAL TABLE main.f USING fts5(a); CREATE VIRTUAL TABLE temp.x USING fts5vocab(main, f, "
          L"row)"}) {
        const auto other = Connect();
        ASSERT_EQ(RunSql(*other, text).result, S_OK) << ToUtf8(text);
        EXPECT_FALSE(other->Reset()) << ToUtf8(text);
    }
}

TEST_F(SqliteConnectionTest, SeesChangesOfTheSchema) {
    ASSERT_EQ(RunSql(*connection, L"INSERT INTO t VALUES(1,'x')").result, S_OK);
    EXPECT_EQ(RunSql(*connection, L"SELECT * FROM t").rows, Rows{"1|x"});
    ASSERT_EQ(RunSql(*Connect(), L"ALTER TABLE t ADD COLUMN c DEFAULT 'new'").result, S_OK);
    EXPECT_EQ(RunSql(*connection, L"SELECT * FROM t").rows, Rows{"1|x|new"});
    ASSERT_EQ(RunSql(*Connect(), L"DROP TABLE t").result, S_OK);
    EXPECT_EQ(RunSql(*connection, L"SELECT * FROM t").result, DB_E_ERRORSINCOMMAND);
}

/// A query without end.
constexpr std::wstring_view kEndless =
    L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n) SELECT count(*) FROM n";

TEST_F(SqliteConnectionTest, UndoesWhatACancelledCommandWrote) {
    std::thread canceller([&] { connection->Cancel(); });
    EXPECT_EQ(RunSql(*connection, L"INSERT INTO t(a) VALUES(1); " + std::wstring(kEndless)).result,
              DB_E_CANCELED);
    canceller.join();
    EXPECT_EQ(Content(), Rows());
}

/// Another process that holds the database's write lock.
class CLocker {
 public:
    explicit CLocker(const std::filesystem::path& path) {
        EXPECT_EQ(::sqlite3_open(path.c_str(), &m_database), SQLITE_OK);
        EXPECT_EQ(::sqlite3_exec(m_database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    }
    ~CLocker() { ::sqlite3_close_v2(m_database); }
    CLocker(const CLocker&) = delete;
    CLocker& operator=(const CLocker&) = delete;

 private:
    sqlite3* m_database = nullptr;
};

TEST_F(SqliteConnectionTest, ReportsALockedDatabaseAndWorksOnceItIsFree) {
    {
        const CLocker locker(path);
        const CSqlOutcome outcome = RunSql(*connection, L"INSERT INTO t(a) VALUES(1)");
        EXPECT_EQ(outcome.result, kLocked);
        EXPECT_EQ(outcome.description, L"database is locked");
        EXPECT_EQ(RunSql(*connection, L"SELECT count(*) FROM t").rows, Rows{"0"})
            << "readers are not locked out";
        EXPECT_EQ(RunSql(*connection, L"CREATE TEMP TABLE x(a); SELECT 1").rows, Rows{"1"});
    }
    EXPECT_EQ(RunSql(*connection, L"INSERT INTO t(a) VALUES(1)").result, S_OK);
}

TEST_F(SqliteConnectionTest, EndsTheWaitForALockWhenItIsCancelled) {
    const CLocker locker(path);
    const auto patient = Connect({std::chrono::hours(1)});
    std::thread canceller([&] { patient->Cancel(); });
    EXPECT_EQ(RunSql(*patient, L"INSERT INTO t(a) VALUES(1)").result, DB_E_CANCELED);
    canceller.join();
}

TEST_F(SqliteConnectionTest, RefusesFilesThatAreNoDatabase) {
    WriteFile(folder / "text", std::string(5000, 'x'));
    std::filesystem::create_directory(folder / "folder");
    for (const std::string_view name : {"missing", "text", "folder"}) {
        std::unique_ptr<ISqlConnection> none;
        const auto database = OpenSqliteDatabase(FromUtf8((folder / name).native()));
        EXPECT_EQ(database->Connect(none), E_FAIL) << name;
        EXPECT_NE(TakeErrorInfo().find(FromUtf8(name)), std::wstring::npos);
        EXPECT_FALSE(none);
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "missing")) << "opening must not create a database";
}

TEST_F(SqliteConnectionTest, ReportsADamagedDatabase) {
    ASSERT_EQ(RunSql(*connection, L"PRAGMA journal_mode=DELETE").result, S_OK);
    ASSERT_EQ(RunSql(*connection,
                     L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n LIMIT 5000)"
                     L"INSERT INTO t SELECT i, printf('%100d', i) FROM n")
                  .result,
              S_OK);
    connection.reset();
    std::string bytes = ReadFile(path);
    std::fill(bytes.begin() + 4096, bytes.end(), '\xA5');
    WriteFile(path, bytes);
    EXPECT_EQ(RunSql(*Connect(), L"SELECT * FROM t").result, E_FAIL);
}

TEST_F(SqliteConnectionTest, CallsTheFunctionsOfTheCommand) {
    CRecordingFunctions functions;
    const CSqlOutcome outcome =
        RunSql(*connection,
               L"SELECT http_provenance('Manifest'); SELECT http_header('A: 1'), http_header(NULL);"
               L"SELECT script_library('x.so'); SELECT script_resource(5);"
               L"SELECT http_decode('a%20b+%C3%A4%zz%'), http_decode(NULL), script_action('f', 1, 0.5, 'x', "
               L"x'01', NULL),"
               L"script_action('g', 7), script_action('h')",
               {}, &functions);
    EXPECT_EQ(outcome.result, S_OK) << ToUtf8(outcome.description);
    EXPECT_EQ(outcome.rows, Rows{"a b \u00e4%zz%|NULL|NULL|7|NULL"});
    EXPECT_EQ(functions.calls, (std::vector<std::wstring>{
                                   L"provenance Manifest", L"header A: 1", L"library x.so", L"resource 20",
                                   L"action f 20 5 8 13 1", L"action g 20", L"action h"}));
}

TEST_F(SqliteConnectionTest, ReturnsTheFailureOfAFunction) {
    CRecordingFunctions functions;
    functions.answer = HResultFromWin32(5);
    for (const std::wstring_view text :
         {L"SELECT script_action('f')", L"INSERT INTO t(b) SELECT script_action('f')",
          L"SELECT http_header('A: 1'); SELECT 1"}) {
        const CSqlOutcome outcome = RunSql(*connection, text, {}, &functions);
        EXPECT_EQ(outcome.result, HResultFromWin32(5)) << ToUtf8(text);
        EXPECT_EQ(outcome.description, L"As the test wants. (line 1)");
    }
    EXPECT_EQ(RunSql(*connection, L"SELECT script_action(NULL)").result, E_INVALIDARG);
    EXPECT_EQ(RunSql(*connection, L"SELECT script_action()").result, E_INVALIDARG);
    EXPECT_EQ(RunSql(*connection, L"CREATE VIEW x AS SELECT http_header('A: 1'); SELECT * FROM x").result,
              DB_E_ERRORSINCOMMAND)
        << "what the database holds reaches nothing outside";
}

TEST_F(SqliteConnectionTest, ReportsTheTypesThatColumnsWereDeclaredWith) {
    using Type = CSqlColumn::Type;
    const std::pair<std::string_view, Type> cases[] = {
        {"Int (11)", Type::I4},           {"DOUBLE  PRECISION", Type::R8}, {"DECIMAL(10,2)", Type::Numeric},
        {"NUMERIC(21,2)", Type::Variant}, {"VARCHAR(20)", Type::Text},     {"", Type::Variant},
    };
    std::wstring table = L"CREATE TABLE types(";
    for (std::size_t index = 0; index != std::size(cases); ++index) {
        table += (index == 0 ? L"c" : L", c") + std::to_wstring(index) + L" " + FromUtf8(cases[index].first);
    }
    CRecordingFunctions functions;
    std::unique_ptr<ISqlRows> rows;
    ASSERT_EQ(RunSql(*connection, table + L")").result, S_OK);
    ASSERT_EQ(Opened(*connection, L"SELECT *, 1+1 AS [two words] FROM types", functions, rows), S_OK);
    ASSERT_EQ(rows->Columns().size(), std::size(cases) + 1);
    for (std::size_t index = 0; index != std::size(cases); ++index) {
        EXPECT_EQ(rows->Columns()[index].type, cases[index].second) << cases[index].first;
    }
    EXPECT_EQ(rows->Columns().back().type, Type::Variant);
    EXPECT_EQ(rows->Columns().back().name, L"two words");
    const CSqlColumn& decimal = rows->Columns()[2];
    EXPECT_EQ(std::pair(decimal.precision, decimal.scale), std::pair(std::uint8_t{10}, std::uint8_t{2}));
}

}  // namespace
}  // namespace quorbel
