#include <thread>

#include "components/oledb/ByteStream.h"
#include "components/provider/ArchiveProvider.h"
#include "components/provider/ResultValues.h"
#include "components/provider/SqliteDatabase.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/DataInitialize.h"
#include "platform/oledb/OleDb.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/components/oledb/OleDbConsumer.h"
#include "tests/components/provider/SqlRun.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using namespace std::literals;
using Lines = std::vector<std::wstring>;

constexpr wchar_t kSettings[] = L"SOFTWARE\\Quorbel\\Archive";

class ArchiveProviderTest : public testing::Test {
 protected:
    ArchiveProviderTest() {
        SetDatabase(path);
        MakeDatabase(path,
                     L"CREATE TABLE t(id INTEGER PRIMARY KEY, name TEXT, flag BOOLEAN, size INT, data BLOB);"
                     L"INSERT INTO t VALUES(1,'one',1,10,x'00FF'),(2,NULL,0,'big',NULL)");
    }

    void Set(std::wstring_view name, const CValue& value) {
        auto key = localMachine->Create(kSettings);
        ASSERT_TRUE(key.IsOk());
        EXPECT_EQ(key.Value()->Set(name, value), ErrorCode::Success);
        DeliverChanges(*key.Value());
    }
    /// Arming a watch sets off those that changes before it were to set off.
    static void DeliverChanges(IKey& key) {
        EXPECT_EQ(key.Watch(WatchScope::Key, WatchFilter::Names, CEvent::Create(EventReset::Manual).Value()),
                  ErrorCode::Success);
    }
    void SetDatabase(const std::filesystem::path& file) {
        Set(L"Database", CValue::FromText(FromUtf8(file.native())));
    }
    static void MakeDatabase(const std::filesystem::path& file, std::wstring_view text) {
        WriteFile(file, "");
        std::unique_ptr<ISqlConnection> connection;
        ASSERT_EQ(OpenSqliteDatabase(FromUtf8(file.native()))->Connect(connection), S_OK);
        const CSqlOutcome outcome = RunSql(*connection, text);
        ASSERT_EQ(outcome.result, S_OK) << ToUtf8(outcome.description);
    }

    CComPtr<IOpenRowset> Session() {
        CComPtr<IOpenRowset> session;
        EXPECT_EQ(OpenSession(session), S_OK) << ToUtf8(TakeErrorInfo());
        return session;
    }
    static CComPtr<ICommand> Command(const CComPtr<IOpenRowset>& session, const wchar_t* text) {
        CComPtr<ICommand> command;
        EXPECT_EQ(MakeCommand(session, text, command), S_OK);
        return command;
    }
    Lines Query(const wchar_t* text, const std::vector<CDeclared>& declared = {}) {
        CComPtr<IRowset> rowset;
        EXPECT_EQ(Execute(Command(Session(), text), declared, rowset), S_OK) << ToUtf8(TakeErrorInfo());
        return rowset ? Fetch(rowset) : Lines{L"failed"};
    }

    CTemporaryFolder folder;
    std::filesystem::path path = folder / "archive.db";
    std::shared_ptr<IRegistry> registry = OpenSqliteRegistry(folder.Path()).Value();
    std::shared_ptr<IKey> localMachine = registry->LocalMachine();
    const CComRegistration initialize = RegisterDataInitialize();
    const CComRegistration registration = RegisterArchiveProvider(localMachine);
};

TEST_F(ArchiveProviderTest, DescribesItsColumns) {
    CComPtr<IRowset> rowset;
    ASSERT_EQ(Execute(Command(Session(), L"SELECT id, name, flag, data, 1+1 FROM t"), rowset), S_OK);
    CComPtr<IColumnsInfo> columns;
    ASSERT_EQ(rowset.QueryInterface(columns), S_OK);
    std::size_t count = 0;
    DBCOLUMNINFO* info = nullptr;
    wchar_t* names = nullptr;
    ASSERT_EQ(columns->GetColumnInfo(&count, &info, &names), S_OK);
    ASSERT_EQ(count, 5U);
    const std::tuple<std::wstring_view, DBTYPE, std::size_t> expected[] = {
        {L"id", DBTYPE_I8, 8},
        {L"name", DBTYPE_WSTR, kUnknownSize},
        {L"flag", DBTYPE_BOOL, 2},
        {L"data", DBTYPE_VARIANT, sizeof(VARIANT)},
        {L"1+1", DBTYPE_VARIANT, sizeof(VARIANT)},
    };
    for (std::size_t index = 0; index != count; ++index) {
        const auto& [name, type, size] = expected[index];
        EXPECT_EQ(info[index].iOrdinal, index + 1);
        EXPECT_EQ(info[index].pwszName, name);
        EXPECT_EQ(info[index].wType, type);
        EXPECT_EQ(info[index].ulColumnSize, size);
    }
    CoTaskMemFree(info);
    CoTaskMemFree(names);
}

TEST_F(ArchiveProviderTest, ReportsTheParametersThatWereDeclared) {
    const CComPtr<ICommand> command = Command(Session(), L"SELECT 1");
    CComPtr<ICommandWithParameters> parameters;
    ASSERT_EQ(command.QueryInterface(parameters), S_OK);
    std::size_t count = 9;
    DBPARAMINFO* info = nullptr;
    EXPECT_EQ(parameters->GetParameterInfo(&count, &info), S_OK);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(info, nullptr);
    const DBPARAMBINDINFO declared[] = {{L"DBTYPE_WVARCHAR", L"x", 8, 0, 255, 255},
                                        {nullptr, L"Session$User", 0, 0, 0, 0},
                                        {L"DBTYPE_WVARCHAR", L"x", 8, 0, 255, 255}};
    const std::size_t ordinals[] = {1, 2, 3};
    ASSERT_EQ(parameters->SetParameterInfo(3, ordinals, declared), S_OK);
    ASSERT_EQ(parameters->GetParameterInfo(&count, &info), S_OK);
    ASSERT_EQ(count, 3U);
    for (std::size_t index = 0; index != count; ++index) {
        EXPECT_EQ(info[index].iOrdinal, index + 1);
        EXPECT_EQ(std::wstring_view(info[index].pwszName), declared[index].pwszName);
        EXPECT_EQ(info[index].wType, declared[index].pwszDataSourceType ? DBTYPE_WSTR : DBTYPE_VARIANT);
        EXPECT_EQ(info[index].ulParamSize, declared[index].ulParamSize);
        EXPECT_EQ(info[index].bPrecision, declared[index].bPrecision);
    }
    CoTaskMemFree(info);
    for (const std::size_t wrong : {0, 1, 4}) {
        const std::size_t bad[] = {1, 2, wrong};
        EXPECT_EQ(parameters->SetParameterInfo(3, bad, declared), E_INVALIDARG) << wrong;
    }
}

TEST_F(ArchiveProviderTest, RefusesBindingsThatItCannotFill) {
    CComPtr<IRowset> rowset;
    CComPtr<IAccessor> accessors;
    ASSERT_EQ(Execute(Command(Session(), L"SELECT 1"), rowset), S_OK);
    ASSERT_EQ(rowset.QueryInterface(accessors), S_OK);
    const DBBINDING good{1, 0, 0, 0, nullptr, nullptr, DBPART_VALUE, DBPARAMIO_NOTPARAM, 10, DBTYPE_WSTR};
    const DBOBJECT stream{0, IStream::kId};
    const auto make = [&](std::uint32_t flags, std::size_t ordinal, DBTYPE type, const DBOBJECT* object) {
        const DBBINDING bindings[] = {
            good, {ordinal, 0, 0, 0, object, nullptr, DBPART_VALUE, DBPARAMIO_NOTPARAM, 10, type}};
        HACCESSOR accessor = 0;
        DBSTATUS statuses[2] = {9, 9};
        const HRESULT result = accessors->CreateAccessor(flags, 2, bindings, 100, &accessor, statuses);
        return std::tuple(result, statuses[1]);
    };
    EXPECT_EQ(make(DBACCESSOR_ROWDATA, 1, DBTYPE_I4, nullptr), std::tuple(S_OK, DBSTATUS{0}));
    EXPECT_EQ(make(DBACCESSOR_ROWDATA, 0, DBTYPE_I4, nullptr), std::tuple(DB_E_ERRORSOCCURRED, DBSTATUS{1}));
    EXPECT_EQ(make(DBACCESSOR_ROWDATA, 2, DBTYPE_I4, nullptr), std::tuple(DB_E_ERRORSOCCURRED, DBSTATUS{1}));
    EXPECT_EQ(make(DBACCESSOR_ROWDATA, 1, DBTYPE_GUID, nullptr),
              std::tuple(DB_E_ERRORSOCCURRED, DBSTATUS{2}));
    EXPECT_EQ(make(DBACCESSOR_ROWDATA, 1, DBTYPE_IUNKNOWN, &stream),
              std::tuple(DB_E_ERRORSOCCURRED, DBSTATUS{3}));
    EXPECT_EQ(make(DBACCESSOR_PARAMETERDATA, 1, DBTYPE_I4, nullptr),
              std::tuple(DB_E_BADBINDINFO, DBSTATUS{9}));
}

TEST_F(ArchiveProviderTest, GoesThroughItsRowsOnceAndOneByOne) {
    CComPtr<IRowset> rowset;
    CComPtr<IAccessor> accessors;
    ASSERT_EQ(Execute(Command(Session(), L"SELECT id FROM t ORDER BY id"), rowset), S_OK);
    ASSERT_EQ(rowset.QueryInterface(accessors), S_OK);
    const DBBINDING binding{1, 0, 0, 0, nullptr, nullptr, DBPART_VALUE, DBPARAMIO_NOTPARAM, 8, DBTYPE_I8};
    HACCESSOR accessor = 0;
    ASSERT_EQ(accessors->CreateAccessor(DBACCESSOR_ROWDATA, 1, &binding, 8, &accessor, nullptr), S_OK);
    EXPECT_EQ(rowset->RestartPosition(0), S_OK);
    HROW row = 0;
    HROW* rows = &row;
    std::size_t obtained = 0;
    std::int64_t id = 0;
    ASSERT_EQ(rowset->GetNextRows(0, 0, 1, &obtained, &rows), S_OK);
    EXPECT_EQ(rowset->GetData(row, accessor, &id), S_OK);
    EXPECT_EQ(id, 1);
    EXPECT_EQ(rowset->GetData(row + 1, accessor, &id), DB_E_BADROWHANDLE);
    EXPECT_EQ(rowset->GetData(row, accessor + 1, &id), DB_E_BADACCESSORHANDLE);
    EXPECT_FALSE(Succeeded(rowset->GetNextRows(0, 0, 1, &obtained, &rows))) << "the row is still held";
    EXPECT_EQ(rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(rowset->GetData(row, accessor, &id), DB_E_BADROWHANDLE);
    EXPECT_EQ(rowset->RestartPosition(0), DB_E_CANNOTRESTART);
    EXPECT_EQ(accessors->ReleaseAccessor(accessor, nullptr), S_OK);
    EXPECT_EQ(accessors->ReleaseAccessor(accessor, nullptr), DB_E_BADACCESSORHANDLE);
    EXPECT_EQ(Fetch(rowset), Lines{L"2"});
    EXPECT_EQ(rowset->GetNextRows(0, 0, 1, &obtained, &rows), DB_S_ENDOFROWSET) << "still at the end";
    EXPECT_EQ(obtained, 0U);
}

TEST_F(ArchiveProviderTest, GivesTheResultValuesOfTheEndOfTheExecution) {
    const auto value = [](const CComPtr<IResultValues>& values, std::wstring_view name) {
        CVariant read;
        EXPECT_EQ(values->GetValue(static_cast<const VARIANT*>(&static_cast<const VARIANT&>(CVariant(name))),
                                   read.Receive()),
                  S_OK);
        return read;
    };
    CComPtr<IRowset> rowset;
    CComPtr<IResultValues> values;
    std::uint32_t count = 9;
    ASSERT_EQ(Execute(Command(Session(), L"SELECT 1"), rowset), S_OK);
    ASSERT_EQ(rowset.QueryInterface(values), S_OK);
    EXPECT_EQ(values->GetCount(&count), S_OK);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(value(values, L"HTTP.Provenance").vt, VT_EMPTY);
    EXPECT_EQ(value(values, L"HTTP.Header").vt, VT_EMPTY);

    ASSERT_EQ(Execute(Command(Session(),
                              L"SELECT http_header('A: 1'), http_provenance('x');"
                              L"SELECT id, http_provenance('row '||id), http_header('B: '||id)"
                              L" FROM (SELECT 1 id UNION ALL SELECT 2)"),
                      rowset),
              S_OK);
    ASSERT_EQ(rowset.QueryInterface(values), S_OK);
    EXPECT_EQ(Fetch(rowset).size(), 2U);
    EXPECT_EQ(values->GetCount(&count), S_OK);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(value(values, L"HTTP.Provenance").Text(), L"row 1");
    const CVariant headers = value(values, L"HTTP.Header");
    ASSERT_EQ(headers.vt, VT_ARRAY | VT_BSTR);
    ASSERT_EQ(headers.parray->count, 2U);
    EXPECT_EQ(ToView(static_cast<const BSTR*>(headers.parray->data)[1]), L"B: 1");
    EXPECT_EQ(value(values, L"http.header").vt, VT_EMPTY) << "names compare exactly";
}

TEST_F(ArchiveProviderTest, LetsOneRowsetAtATimeUseASession) {
    const CComPtr<IOpenRowset> session = Session();
    CComPtr<IRowset> rowset;
    CComPtr<IRowset> other;
    ASSERT_EQ(Execute(Command(session, L"CREATE TEMP TABLE x(a); SELECT 1"), rowset), S_OK);
    EXPECT_EQ(Execute(Command(session, L"SELECT 2"), other), DB_E_OBJECTOPEN);
    EXPECT_EQ(Fetch(rowset), Lines{L"1"});
    rowset = nullptr;
    EXPECT_EQ(Execute(Command(session, L"SELECT * FROM x"), other), DB_E_ERRORSINCOMMAND)
        << "of another command";
    EXPECT_EQ(Execute(Command(session, L"SELECT 2"), other), S_OK);
    EXPECT_EQ(Fetch(other), Lines{L"2"});
}

TEST_F(ArchiveProviderTest, FollowsItsSettings) {
    EXPECT_EQ(Query(L"SELECT count(*) FROM t"), Lines{L"2"});
    MakeDatabase(folder / "other.db", L"CREATE TABLE t(a)");
    SetDatabase(folder / "other.db");
    EXPECT_EQ(Query(L"SELECT count(*) FROM t"), Lines{L"0"});
    MakeDatabase(folder / "third.db", L"CREATE TABLE t(a); INSERT INTO t VALUES(1)");
    std::filesystem::rename(folder / "third.db", folder / "other.db");
    EXPECT_EQ(Query(L"SELECT count(*) FROM t"), Lines{L"1"}) << "the file was replaced";
    CComPtr<IOpenRowset> session;
    Set(L"Connection", CValue::FromText(L"Driver=/missing/driver.so"));
    EXPECT_FALSE(Succeeded(OpenSession(session))) << "a server goes before the file";
    EXPECT_FALSE(TakeErrorInfo().empty());
    Set(L"Connection", CValue::FromText(L""));
    SetDatabase(folder / "missing.db");
    EXPECT_EQ(OpenSession(session), E_FAIL);
    EXPECT_FALSE(TakeErrorInfo().empty());
    const auto key = localMachine->Open(kSettings, KeyAccess::ReadWrite).Value();
    EXPECT_EQ(key->DeleteValue(L"Database"), ErrorCode::Success);
    DeliverChanges(*key);
    EXPECT_EQ(OpenSession(session), E_FAIL);
    EXPECT_FALSE(TakeErrorInfo().empty());
    SetDatabase(path);
    EXPECT_EQ(Query(L"SELECT count(*) FROM t"), Lines{L"2"});
    EXPECT_EQ(localMachine->DeleteTree(kSettings), ErrorCode::Success);
    SetDatabase(folder / "other.db");
    EXPECT_EQ(Query(L"SELECT count(*) FROM t"), Lines{L"1"}) << "a new key in place of the old one";
}

TEST_F(ArchiveProviderTest, AnswersManyThreadsThroughFewConnections) {
    Set(L"MaxConnections", CValue::FromNumber32(4));
    EXPECT_EQ(Query(L"PRAGMA journal_mode=WAL"), Lines{L"wal"});
    std::vector<std::thread> threads;
    for (int number = 0; number != 64; ++number) {
        threads.emplace_back([&, number] {
            for (int round = 0; round != 5; ++round) {
                const std::wstring id = std::to_wstring(100 + number * 5 + round);
                EXPECT_EQ(
                    Query(L"INSERT INTO t(id,name) VALUES(@id,'x') RETURNING id", {{L"id", CVariant(id)}}),
                    Lines{id});
                EXPECT_EQ(Query(L"SELECT name FROM t WHERE id=@id", {{L"id", CVariant(id)}}), Lines{L"x"});
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(Query(L"SELECT count(*) FROM t"), Lines{L"322"});
}

}  // namespace
}  // namespace quorbel
