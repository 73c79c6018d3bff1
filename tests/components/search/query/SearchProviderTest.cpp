#include <gmock/gmock.h>
#include <thread>

#include "components/search/query/CommandParser.h"
#include "components/search/query/SearchProvider.h"
#include "components/search/query/SearchRows.h"
#include "tests/components/search/query/SearchFixture.h"
#include "tests/support/HandClock.h"

namespace quorbel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

const std::wstring kAll = L"SELECT System.FileName FROM SystemIndex";

class SearchProvider : public CSearchFixture {
 protected:
    static HRESULT Command(const std::wstring& text, CComPtr<IOpenRowset>& session,
                           CComPtr<ICommand>& command) {
        const HRESULT result = session ? S_OK : OpenSearchSession(session);
        return Succeeded(result) ? MakeCommand(session, text, command) : result;
    }
};

TEST_F(SearchProvider, CannotBeOpenedWithoutAnIndex) {
    m_writer.reset();
    std::filesystem::remove_all(m_folder.Path());
    const auto answer = RunSearch(kAll);
    EXPECT_EQ(answer.result, E_FAIL);
    EXPECT_EQ(answer.problem, L"There is no search index yet.");
}

TEST_F(SearchProvider, UsesTheIndexThatIsThere) {
    Put({{"/srv", "old.txt", "fox"}});
    EXPECT_THAT(RunSearch(kAll).rows, ElementsAre(L"old.txt"));
    m_writer.reset();
    std::filesystem::remove_all(m_folder.Path());
    SetUp();
    Put({{"/srv", "new.txt", "fox"}});
    EXPECT_THAT(RunSearch(kAll).rows, ElementsAre(L"new.txt"));
}

TEST_F(SearchProvider, ReadsOneStateOfTheIndex) {
    Put({{"/srv", "a.txt", "fox"}, {"/srv", "b.txt", "fox"}});
    CComPtr<IOpenRowset> session;
    CComPtr<ICommand> command;
    CComPtr<IRowset> rowset;
    ASSERT_EQ(Command(kAll + L" WHERE CONTAINS('fox')", session, command), S_OK);
    ASSERT_EQ(Execute(command, rowset), S_OK);
    Put({{"/srv", "a.txt", "bear"}, {"/srv", "b.txt", "bear"}, {"/srv", "c.txt", "fox"}});
    EXPECT_THAT(Fetch(rowset), ElementsAre(L"a.txt", L"b.txt"));
}

TEST_F(SearchProvider, RunsOneCommandAfterTheOtherInASession) {
    Put({{"/srv", "a.txt", "fox"}, {"/srv", "b.txt", "fox"}});
    CComPtr<IOpenRowset> session;
    CComPtr<ICommand> first;
    CComPtr<ICommand> second;
    CComPtr<IRowset> rows;
    CComPtr<IRowset> others;
    ASSERT_EQ(Command(kAll, session, first), S_OK);
    ASSERT_EQ(Command(kAll, session, second), S_OK);
    ASSERT_EQ(Execute(first, rows), S_OK);
    EXPECT_EQ(Execute(second, others), DB_E_OBJECTOPEN);
    rows = nullptr;
    ASSERT_EQ(Execute(second, others), S_OK);
    EXPECT_THAT(Fetch(others), SizeIs(2));
}

TEST_F(SearchProvider, EndsACancelledCommandAndNoOther) {
    Put({{"/srv", "a.txt", "fox"}, {"/srv", "b.txt", "fox"}});
    CComPtr<IOpenRowset> session;
    CComPtr<ICommand> command;
    CComPtr<ICommand> other;
    CComPtr<IRowset> rowset;
    ASSERT_EQ(Command(kAll, session, command), S_OK);
    ASSERT_EQ(Command(kAll, session, other), S_OK);
    ASSERT_EQ(Execute(command, rowset), S_OK);
    std::thread([&] {
        EXPECT_EQ(other->Cancel(), S_OK);
        EXPECT_EQ(command->Cancel(), S_OK);
    }).join();
    HRESULT end = S_OK;
    Fetch(rowset, &end);
    EXPECT_EQ(end, DB_E_CANCELED);
    rowset = nullptr;
    EXPECT_EQ(Execute(command, rowset), DB_E_CANCELED);
    CComPtr<ICommand> next;
    ASSERT_EQ(Command(kAll, session, next), S_OK);
    ASSERT_EQ(Execute(next, rowset), S_OK);
    EXPECT_THAT(Fetch(rowset), SizeIs(2));
}

TEST_F(SearchProvider, RefusesWhatItHasNot) {
    CComPtr<IOpenRowset> session;
    CComPtr<ICommand> command;
    CComPtr<IRowset> rowset;
    CComPtr<ICommandWithParameters> parameters;
    CComPtr<ICommandText> text;
    ASSERT_EQ(Command(L"", session, command), S_OK);
    EXPECT_EQ(Execute(command, rowset), DB_E_NOCOMMAND);
    EXPECT_EQ(command.QueryInterface(parameters), E_NOINTERFACE);
    ASSERT_EQ(command.QueryInterface(text), S_OK);
    EXPECT_EQ(text->SetCommandText(IUnknown::kId, kAll.c_str()), DB_E_DIALECTNOTSUPPORTED);
    ASSERT_EQ(text->SetCommandText(DBGUID_DEFAULT, L"SELECT System.Foo FROM SystemIndex"), S_OK);
    EXPECT_EQ(Execute(command, rowset), DB_E_ERRORSINCOMMAND);
    EXPECT_EQ(TakeErrorInfo(), L"There is no column \"System.Foo\" (character 8).");
}

/// A clock on which time flies while it is looked at.
class CFlyingClock final : public IClock {
 public:
    std::chrono::nanoseconds Steady() const override { return m_now += std::chrono::seconds(3); }
    std::uint64_t System() const override { return 0; }
    void Pause(std::chrono::milliseconds, CEvent&) override {}

 private:
    mutable std::chrono::nanoseconds m_now{};
};

TEST_F(SearchProvider, EndsACommandThatTakesTooLong) {
    std::vector<CSearchFile> files;
    for (int file = 0; file != 300; ++file) files.push_back({"/srv", std::to_string(file), "fox"});
    Put(files);
    CFlyingClock clock;
    std::unique_ptr<IConnection> connection;
    ASSERT_EQ(CSearchConnection::Open(m_folder.Path(), {}, clock, connection), S_OK);
    // Every document is compared with many texts.
    std::wstring text = kAll + L" WHERE System.FileName = 'x'";
    for (int more = 0; more != 300; ++more)
        text += L" OR System.FileName LIKE '%" + std::to_wstring(more) + L"x'";
    const auto command = ParseSearchCommand(text);
    std::shared_ptr<CSearchRows> rows;
    EXPECT_EQ(CSearchRows::Open(static_cast<CSearchConnection&>(*connection),
                                PlanSearch(std::get<CSearchCommand>(command)), rows),
              HResultFromWin32(1460));
    EXPECT_EQ(TakeErrorInfo(), L"The search takes too long.");
    EXPECT_TRUE(connection->Reset());
    ASSERT_EQ(CSearchRows::Open(static_cast<CSearchConnection&>(*connection),
                                PlanSearch(std::get<CSearchCommand>(ParseSearchCommand(kAll))), rows),
              S_OK);
    EXPECT_EQ(rows->Next(), S_OK);
}

TEST_F(SearchProvider, ServesManyThreads) {
    std::vector<CSearchFile> files;
    for (int file = 0; file != 50; ++file) files.push_back({"/srv", std::to_string(file) + ".txt", "fox"});
    Put(files);
    std::vector<std::thread> threads;
    for (int thread = 0; thread != 24; ++thread) {
        threads.emplace_back([] {
            for (int round = 0; round != 5; ++round) {
                EXPECT_THAT(RunSearch(kAll + L" WHERE CONTAINS('fox')").rows, SizeIs(50));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace quorbel
