#include <thread>

#include "components/provider/ArchiveProvider.h"
#include "components/provider/ResultValues.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/DataInitialize.h"
#include "platform/oledb/OleDb.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/components/oledb/OleDbConsumer.h"
#include "tests/support/PostgresServer.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using Lines = std::vector<std::wstring>;
using Arguments = std::vector<std::pair<std::wstring, std::wstring>>;

enum class Engine { Sqlite, Postgres };

/// What came of a query file's text.
struct CAnswer {
    HRESULT result = S_OK;
    std::vector<DBTYPE> types;
    Lines lines;  ///< values as text, joined by "|"; "#" and the status of those that have none
    std::wstring provenance;
    Lines headers;
};

/// Runs texts from the provider's initialisation string to rows, over each of the databases.
class BothDatabases : public testing::TestWithParam<Engine> {
 protected:
    BothDatabases() {
        auto key = m_localMachine->Create(L"SOFTWARE\\Quorbel\\Archive");
        if (!key.IsOk()) return;
        WriteFile(m_folder / "archive.db", "");
        const std::wstring value = GetParam() == Engine::Sqlite
                                       ? FromUtf8((m_folder / "archive.db").native())
                                       : CPostgresServer::Shared().ConnectionString();
        const wchar_t* const name = GetParam() == Engine::Sqlite ? L"Database" : L"Connection";
        EXPECT_EQ(key.Value()->Set(name, CValue::FromText(value)), ErrorCode::Success);
        if (GetParam() == Engine::Sqlite) {
            EXPECT_EQ(Run(L"PRAGMA journal_mode = WAL").lines, Lines{L"wal"});
        }
    }

    CAnswer Run(const std::wstring& text, const Arguments& arguments = {}) {
        CAnswer answer;
        CComPtr<ICommand> command;
        CComPtr<IRowset> rowset;
        CComPtr<IOpenRowset> session;
        answer.result = OpenSession(session);
        if (Succeeded(answer.result)) answer.result = MakeCommand(session, text, command);
        if (Succeeded(answer.result)) answer.result = Execute(command, arguments, rowset);
        if (Succeeded(answer.result)) Read(rowset, answer);
        return answer;
    }
    /// Removes and makes what the cases of a table begin with.
    void Prepare(const std::wstring& text) {
        const CAnswer answer = Run(text);
        ASSERT_EQ(answer.result, S_OK) << ToUtf8(text) << ToUtf8(TakeErrorInfo());
    }

    static HRESULT Execute(const CComPtr<ICommand>& command, const Arguments& arguments,
                           CComPtr<IRowset>& rowset) {
        std::vector<CDeclared> declared;
        for (const auto& [name, text] : arguments) declared.push_back({name, CVariant(text)});
        return quorbel::Execute(command, declared, rowset);
    }

    static void Read(const CComPtr<IRowset>& rowset, CAnswer& answer) {
        answer.types = TypesOf(rowset);
        ReadValues(rowset, answer);
        answer.lines = Fetch(rowset, &answer.result);
        if (answer.result == DB_S_ENDOFROWSET) answer.result = S_OK;
    }

    static void ReadValues(const CComPtr<IRowset>& rowset, CAnswer& answer) {
        CComPtr<IResultValues> values;
        EXPECT_EQ(rowset.QueryInterface(values), S_OK);
        const CVariant provenance(L"HTTP.Provenance");
        const CVariant header(L"HTTP.Header");
        CVariant value;
        EXPECT_EQ(values->GetValue(&provenance, value.Receive()), S_OK);
        answer.provenance = value.Text();
        EXPECT_EQ(values->GetValue(&header, value.Receive()), S_OK);
        if (value.vt == VT_EMPTY) return;
        const auto* const texts = static_cast<const BSTR*>(value.parray->data);
        for (std::size_t index = 0; index != value.parray->count; ++index) {
            answer.headers.emplace_back(ToView(texts[index]));
        }
    }

 private:
    CTemporaryFolder m_folder;
    std::shared_ptr<IRegistry> m_registry = OpenSqliteRegistry(m_folder.Path()).Value();
    std::shared_ptr<IKey> m_localMachine = m_registry->LocalMachine();
    const CComRegistration m_initialize = RegisterDataInitialize();
    const CComRegistration m_provider = RegisterArchiveProvider(m_localMachine);
};

TEST_P(BothDatabases, GiveTheSameTypesAndTheSameTextsOfValues) {
    const struct {
        std::wstring declaration;
        std::wstring literal;
        DBTYPE type;
        std::wstring text;
    } cases[] = {
        {L"SMALLINT", L"-32768", DBTYPE_I2, L"-32768"},
        {L"INT", L"-2147483648", DBTYPE_I4, L"-2147483648"},
        {L"BIGINT", L"9223372036854775807", DBTYPE_I8, L"9223372036854775807"},
        {L"FLOAT4", L"0.5", DBTYPE_R4, L"0.5"},
        {L"DOUBLE PRECISION", L"0.1", DBTYPE_R8, L"0.1"},
        {L"DOUBLE PRECISION", L"1e300", DBTYPE_R8, L"1e+300"},
        {L"DOUBLE PRECISION", L"-1e-7", DBTYPE_R8, L"-1e-07"},
        {L"NUMERIC(10,3)", L"1.5", DBTYPE_NUMERIC, GetParam() == Engine::Sqlite ? L"1.5" : L"1.500"},
        {L"NUMERIC(21,0)", L"7", DBTYPE_VARIANT, L"7"},
        {L"BOOLEAN", L"TRUE", DBTYPE_BOOL, L"True"},
        {L"BOOLEAN", L"FALSE", DBTYPE_BOOL, L"False"},
        {L"BOOLEAN", L"NULL", DBTYPE_BOOL, L"NULL"},
        {L"TEXT", L"'h\u00e9\U0001F600 ''x'''", DBTYPE_WSTR, L"h\u00e9\U0001F600 'x'"},
        {L"VARCHAR(5)", L"''", DBTYPE_WSTR, L""},
        {L"TEXT", L"NULL", DBTYPE_WSTR, L"NULL"},
        {L"DATE", L"'2024-02-29'", DBTYPE_WSTR, L"2024-02-29"},
        {L"TIME", L"'12:13:14'", DBTYPE_WSTR, L"12:13:14"},
        {L"TIMESTAMP", L"'2024-02-29 12:13:14'", DBTYPE_WSTR, L"2024-02-29 12:13:14"},
        {L"UUID", L"'a0eebc99-9c0b-4ef8-bb6d-6bb9bd380a11'", DBTYPE_WSTR,
         L"a0eebc99-9c0b-4ef8-bb6d-6bb9bd380a11"},
        {L"JSON", L"'{\"a\": 1}'", DBTYPE_WSTR, L"{\"a\": 1}"},
        {L"BYTEA", GetParam() == Engine::Sqlite ? L"x'00ff10'" : L"'\\x00ff10'", DBTYPE_VARIANT, L"00FF10"},
    };
    for (const auto& one : cases) {
        const std::string shown = ToUtf8(one.declaration + L" " + one.literal);
        ASSERT_EQ(Run(L"DROP TABLE IF EXISTS types; CREATE TABLE types (v " + one.declaration +
                      L"); INSERT INTO types VALUES (" + one.literal + L")")
                      .result,
                  S_OK)
            << shown << ToUtf8(TakeErrorInfo());
        const CAnswer answer = Run(L"SELECT v FROM types");
        EXPECT_EQ(answer.result, S_OK) << shown << ToUtf8(TakeErrorInfo());
        EXPECT_EQ(answer.types, std::vector<DBTYPE>{one.type}) << shown;
        EXPECT_EQ(answer.lines, Lines{one.text}) << shown;
    }
}

TEST_P(BothDatabases, AnswerTheSameQueryFilesAlike) {
    const struct {
        std::wstring text;
        Arguments arguments;
        HRESULT result;
        Lines lines;
    } cases[] = {
        {L"DROP TABLE IF EXISTS files; CREATE TABLE files (id INT, name TEXT);"
         L"INSERT INTO files VALUES (1, 'one'), (2, NULL), (3, 'three')",
         {},
         S_OK,
         {}},
        {L"SELECT id, name FROM files ORDER BY id", {}, S_OK, {L"1|one", L"2|NULL", L"3|three"}},
        {L"SELECT name FROM files WHERE id = @id", {{L"id", L"3"}}, S_OK, {L"three"}},
        {L"SELECT name FROM files WHERE id = @[an id] -- @id", {{L"an id", L"1"}}, S_OK, {L"one"}},
        {L"SELECT count(*) FROM files WHERE name = @nobody", {}, S_OK, {L"0"}},
        {L"SELECT name FROM files WHERE name = http_decode(@n)", {{L"n", L"t%68ree"}}, S_OK, {L"three"}},
        {L"SELECT '@a', '''@b' || @a", {{L"a", L"1"}, {L"a", L"2"}}, S_OK, {L"@a|'@b1"}},
        {L"SELECT http_header('X-A: ' || @a), http_provenance('View'); SELECT id FROM files WHERE id = 1",
         {{L"a", L"b"}},
         S_OK,
         {L"1"}},
        {L"INSERT INTO files VALUES (@id, @n) RETURNING id, name",
         {{L"id", L"4"}, {L"n", L"\U0001F600"}},
         S_OK,
         {L"4|\U0001F600"}},
        {L"UPDATE files SET name = 'x' WHERE id = 4; SELECT name FROM files WHERE id = 4", {}, S_OK, {L"x"}},
        {L"DELETE FROM files WHERE id = 4; SELECT nothere FROM files", {}, DB_E_ERRORSINCOMMAND, {}},
        {L"DELETE FROM files WHERE id = 4; COMMIT", {}, DB_E_ERRORSINCOMMAND, {}},
        {L"SELECT count(*) FROM files", {}, S_OK, {L"4"}},
        {L"SELECT id FROM files WHERE id > 99", {}, S_OK, {}},
        {L"SELECT id FROM", {}, DB_E_ERRORSINCOMMAND, {}},
        {L"SELECT ?", {}, DB_E_ERRORSINCOMMAND, {}},
        {L"-- nothing", {}, DB_E_ERRORSINCOMMAND, {}},
        {L"CREATE TEMP TABLE mine (n INT); INSERT INTO mine VALUES (1); SELECT n FROM mine",
         {},
         S_OK,
         {L"1"}},
        {L"SELECT n FROM mine", {}, DB_E_ERRORSINCOMMAND, {}},
    };
    for (const auto& one : cases) {
        const CAnswer answer = Run(one.text, one.arguments);
        EXPECT_EQ(answer.result, one.result) << ToUtf8(one.text) << ToUtf8(TakeErrorInfo());
        EXPECT_EQ(answer.lines, one.lines) << ToUtf8(one.text);
    }
}

TEST_P(BothDatabases, RunAllStatementsOfACommandOrNone) {
    const struct {
        std::wstring text;
        HRESULT result;
        Lines lines;
        Lines left;  // what the table then holds
    } cases[] = {
        {L"INSERT INTO w VALUES (1)", S_OK, {}, {L"1"}},
        {L"INSERT INTO w VALUES (1); INSERT INTO w VALUES (2) RETURNING n", S_OK, {L"2"}, {L"1", L"2"}},
        {L"INSERT INTO w VALUES (1); SELECT n FROM w -- all", S_OK, {L"1"}, {L"1"}},
        {L"INSERT INTO w VALUES (1); SELECT 1; DELETE FROM w", S_OK, {}, {}},
        {L"SELECT 1; SELECT 2; SELECT 3", S_OK, {L"3"}, {}},
        {L"CREATE TABLE w2 (n INT); INSERT INTO w2 VALUES (1); DROP TABLE w2; SELECT 4", S_OK, {L"4"}, {}},
        {L"INSERT INTO w VALUES (1); INSERT INTO w VALUES (1); SELECT 1", DB_E_ERRORSINCOMMAND, {}, {}},
        {L"INSERT INTO w VALUES (1), (2), (1) RETURNING n", DB_E_ERRORSINCOMMAND, {}, {}},
        {L"INSERT INTO w VALUES (1); INSERT INTO nothere VALUES (1)", DB_E_ERRORSINCOMMAND, {}, {}},
        {L"INSERT INTO w VALUES (1); SELECT nothere", DB_E_ERRORSINCOMMAND, {}, {}},
        {L"INSERT INTO w VALUES (1); SELECT n FROM w;\nSELECT FROM FROM", DB_E_ERRORSINCOMMAND, {}, {}},
        {L"INSERT INTO w VALUES (1); ROLLBACK", DB_E_ERRORSINCOMMAND, {}, {}},
        {L"INSERT INTO w VALUES (1); SELECT http_header('a: b', 2)", DB_E_ERRORSINCOMMAND, {}, {}},
        {L"INSERT INTO w VALUES (1); SELECT http_header('no colon')", E_INVALIDARG, {}, {}},
    };
    Prepare(L"DROP TABLE IF EXISTS w; CREATE TABLE w (n INT UNIQUE)");
    for (const auto& one : cases) {
        TakeErrorInfo();
        const CAnswer answer = Run(one.text);
        EXPECT_EQ(answer.result, one.result) << ToUtf8(one.text);
        EXPECT_EQ(TakeErrorInfo().empty(), Succeeded(one.result)) << ToUtf8(one.text);
        EXPECT_EQ(answer.lines, one.lines) << ToUtf8(one.text);
        EXPECT_EQ(Run(L"SELECT n FROM w ORDER BY n").lines, one.left) << ToUtf8(one.text);
        Prepare(L"DELETE FROM w");
    }
}

TEST_P(BothDatabases, HoldNoLocksWhileTheRowsOfACommandThatWritesAreRead) {
    const bool isServer = GetParam() == Engine::Postgres;
    const std::wstring probe =
        isServer ? L"LOCK TABLE k IN ACCESS EXCLUSIVE MODE NOWAIT" : L"UPDATE k SET n = n";
    std::vector<std::wstring> cases = {L"UPDATE k SET n = n + 1; SELECT n FROM k",
                                       L"UPDATE k SET n = n + 1 RETURNING n"};
    if (isServer) cases.emplace_back(L"SELECT n FROM k FOR UPDATE");
    Prepare(
        L"DROP TABLE IF EXISTS k; CREATE TABLE k AS WITH RECURSIVE s(n) AS (SELECT 1 UNION ALL "
        L"SELECT n + 1 FROM s WHERE n < 3000) SELECT n FROM s");
    for (const std::wstring& text : cases) {
        CComPtr<IOpenRowset> session;
        CComPtr<ICommand> command;
        CComPtr<IRowset> rowset;
        ASSERT_EQ(OpenSession(session), S_OK);
        ASSERT_EQ(MakeCommand(session, text, command), S_OK);
        ASSERT_EQ(Execute(command, {}, rowset), S_OK) << ToUtf8(text) << ToUtf8(TakeErrorInfo());
        EXPECT_EQ(Run(probe).result, S_OK) << ToUtf8(text) << ToUtf8(TakeErrorInfo());
        CAnswer answer;
        Read(rowset, answer);
        EXPECT_EQ(answer.result, S_OK) << ToUtf8(text);
        EXPECT_EQ(answer.lines.size(), 3000U) << ToUtf8(text);
    }
}

TEST_P(BothDatabases, ReportAFailureAmongTheRowsAfterThoseBeforeIt) {
    const std::wstring failing =
        GetParam() == Engine::Postgres ? L"1 / (10000 - i)" : L"CASE i WHEN 10000 THEN json('x') ELSE 0 END";
    const CAnswer answer =
        Run(L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) SELECT i, " +
            failing + L" FROM n");
    EXPECT_EQ(answer.result, DB_E_ERRORSINCOMMAND);
    EXPECT_FALSE(TakeErrorInfo().empty());
    EXPECT_GT(answer.lines.size(), 9000U);
    EXPECT_LT(answer.lines.size(), 10000U);
    EXPECT_EQ(Run(L"SELECT 1").lines, Lines{L"1"});
}

TEST_P(BothDatabases, GiveTheValuesThatFunctionsSet) {
    Prepare(L"DROP TABLE IF EXISTS f; CREATE TABLE f (n INT)");
    const struct {
        std::wstring text;
        std::wstring provenance;
        Lines headers;
    } cases[] = {
        {L"SELECT n FROM f", L"", {}},
        {L"SELECT http_header('X: ' || @x), http_provenance('Archive'); INSERT INTO f VALUES (1);"
         L"SELECT http_header('Y: 1'), http_header(NULL); SELECT n FROM f",
         L"Archive",
         {L"X: \u00e9", L"Y: 1"}},
        {L"SELECT http_provenance('a'); SELECT http_provenance('b'); SELECT 1", L"b", {}},
        {L"INSERT INTO f VALUES (2); SELECT http_header('Z: 1')", L"", {L"Z: 1"}},
    };
    for (const auto& one : cases) {
        const CAnswer answer = Run(one.text, {{L"x", L"\u00e9"}});
        EXPECT_EQ(answer.result, S_OK) << ToUtf8(one.text) << ToUtf8(TakeErrorInfo());
        EXPECT_EQ(answer.provenance, one.provenance) << ToUtf8(one.text);
        EXPECT_EQ(answer.headers, one.headers) << ToUtf8(one.text);
    }
    EXPECT_EQ(Run(L"SELECT count(*) FROM f").lines, Lines{L"2"});
}

TEST_P(BothDatabases, CancelACommandAtAnyTimeOfItsLifeAndNoOther) {
    const std::wstring endless =
        L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT (i + 1) % 1000 FROM n) SELECT i FROM n WHERE "
        L"i < 0 OR @rows = 'yes'";
    CComPtr<IOpenRowset> session;
    ASSERT_EQ(OpenSession(session), S_OK);
    for (const wchar_t* const rows : {L"no", L"yes", L"no", L"yes"}) {
        CComPtr<ICommand> command;
        CComPtr<IRowset> rowset;
        CAnswer answer;
        ASSERT_EQ(MakeCommand(session, endless, command), S_OK);
        std::thread canceller([&] { command->Cancel(); });
        answer.result = Execute(command, {{L"rows", rows}}, rowset);
        if (answer.result == S_OK) Read(rowset, answer);
        canceller.join();
        EXPECT_EQ(answer.result, DB_E_CANCELED);
        rowset = nullptr;
        EXPECT_EQ(Execute(command, {}, rowset), DB_E_CANCELED) << "for good";
        CComPtr<ICommand> next;
        ASSERT_EQ(MakeCommand(session, L"SELECT 1", next), S_OK);
        ASSERT_EQ(Execute(next, {}, rowset), S_OK);
        EXPECT_EQ(command->Cancel(), S_OK);
        answer = {};
        Read(rowset, answer);
        EXPECT_EQ(answer.lines, Lines{L"1"}) << "another command's rows";
    }
}

INSTANTIATE_TEST_SUITE_P(, BothDatabases, testing::Values(Engine::Sqlite, Engine::Postgres),
                         [](const auto& engine) {
                             return engine.param == Engine::Sqlite ? "Sqlite" : "Postgres";
                         });

}  // namespace
}  // namespace quorbel
