#include <latch>
#include <new>
#include <thread>

#include "components/oledb/ConnectionPool.h"
#include "components/provider/SqlConnection.h"
#include "platform/Waiting.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"
#include "tests/support/HandClock.h"

namespace quorbel {
namespace {

/// Counts its connections; a connection's fate is the test's choice.
class CFakeDatabase final : public ISqlDatabase {
 public:
    HRESULT Connect(std::unique_ptr<ISqlConnection>& connection) override {
        if (isShortOfMemory) throw std::bad_alloc();
        if (!Succeeded(answer)) return answer;
        connection = std::make_unique<CConnection>(*this);
        return S_OK;
    }
    std::uint64_t Version() const noexcept override { return version; }
    bool ResetMayWait() const noexcept override { return server != nullptr; }

    HRESULT answer = S_OK;
    std::uint64_t version = 1;
    bool isClean = true;  ///< what Reset says
    bool isShortOfMemory = false;
    std::latch* server = nullptr;  ///< what Reset waits for
    std::thread::id closedBy;
    std::atomic<int> open{0};
    std::atomic<int> most{0};
    std::atomic<int> connects{0};

 private:
    class CConnection final : public ISqlConnection {
     public:
        explicit CConnection(CFakeDatabase& database) : m_database(database) {
            ++m_database.connects;
            const int open = ++m_database.open;
            int most = m_database.most;
            while (most < open && !m_database.most.compare_exchange_weak(most, open)) {
            }
        }
        ~CConnection() override {
            m_database.closedBy = std::this_thread::get_id();
            --m_database.open;
        }
        HRESULT Execute(const CSqlCommand&, std::span<const CSqlArgument>, ISqlFunctions&,
                        std::unique_ptr<ISqlRows>&) override {
            return E_NOTIMPL;
        }
        void Cancel() noexcept override {}
        bool Reset() noexcept override {
            if (m_database.server) m_database.server->wait();
            return m_database.isClean;
        }

     private:
        CFakeDatabase& m_database;
    };
};

class ConnectionPoolTest : public testing::Test {
 protected:
    using Connection = std::unique_ptr<CPooledConnection>;

    Connection Take() {
        Connection connection;
        EXPECT_EQ(pool->Take(connection), S_OK);
        return connection;
    }
    std::shared_ptr<CConnectionPool> MakePool(std::size_t mostOpen, std::size_t mostIdle) {
        options.mostOpen = mostOpen;
        options.mostIdle = mostIdle;
        options.idleTime = std::chrono::seconds(60);
        return std::make_shared<CConnectionPool>(database, options, reset, clock);
    }

    CHandClock clock;
    CPoolOptions options;
    std::shared_ptr<CFakeDatabase> database = std::make_shared<CFakeDatabase>();
    std::shared_ptr<CConnectionReset> reset = std::make_shared<CConnectionReset>();
    std::shared_ptr<CConnectionPool> pool = MakePool(3, 2);
};

TEST_F(ConnectionPoolTest, KeepsConnectionsForTheNext) {
    Take();
    Take();
    EXPECT_EQ(database->connects, 1);
    {
        const Connection all[] = {Take(), Take(), Take()};
        EXPECT_EQ(database->open, 3);
    }
    EXPECT_EQ(database->open, 2) << "no more than two idle ones are kept";
    clock.Turn(std::chrono::seconds(61));
    Take();
    EXPECT_EQ(database->open, 1) << "old ones are closed";
    EXPECT_EQ(database->connects, 4);
}

TEST_F(ConnectionPoolTest, ClosesConnectionsThatAreOfNoMoreUse) {
    Take();
    database->version = 2;
    Take();
    EXPECT_EQ(database->connects, 2) << "another file took the database's place";
    database->isClean = false;
    Take();
    EXPECT_EQ(database->open, 0) << "a command left something behind";
    const Connection connection = Take();
    EXPECT_EQ(connection->Renew(), S_OK);
    EXPECT_EQ(database->connects, 4);
    database->answer = E_FAIL;
    EXPECT_EQ(connection->Renew(), E_FAIL);
    EXPECT_EQ(connection->Renew(), E_FAIL) << "there is none to reset";
    database->answer = S_OK;
    EXPECT_EQ(connection->Renew(), S_OK);
}

TEST_F(ConnectionPoolTest, FreesThePlaceOfAConnectionThatCannotBeOpened) {
    database->answer = E_FAIL;
    for (int round = 0; round != 5; ++round) {
        Connection connection;
        EXPECT_EQ(pool->Take(connection), E_FAIL);
    }
    database->answer = S_OK;
    database->isShortOfMemory = true;
    for (int round = 0; round != 5; ++round) {
        Connection connection;
        EXPECT_THROW(Ignore(pool->Take(connection)), std::bad_alloc);
    }
    database->isShortOfMemory = false;
    const Connection all[] = {Take(), Take(), Take()};
}

/// Says when its thread is about to wait.
class CSignal final : public IWaitingObserver {
 public:
    void OnAboutToWait() noexcept override { waits.notify_all_after_increment(); }
    struct CCount {
        std::atomic<int> count{0};
        void notify_all_after_increment() noexcept {
            ++count;
            count.notify_all();
        }
    } waits;
    void Await(int number) const noexcept {
        for (int seen = waits.count; seen < number; seen = waits.count) waits.count.wait(seen);
    }
};

TEST_F(ConnectionPoolTest, ServesThoseWhoWaitInTheOrderInWhichTheyCame) {
    pool = MakePool(1, 1);
    Connection first = Take();
    std::mutex lock;
    std::vector<int> order;
    CSignal signal;
    std::vector<std::thread> threads;
    for (int number = 0; number != 8; ++number) {
        threads.emplace_back([&, number] {
            const CWaitingObserverScope scope(signal);
            const Connection connection = Take();
            const std::lock_guard guard(lock);
            order.push_back(number);
        });
        signal.Await(number + 1);
    }
    first.reset();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(database->connects, 1);
}

TEST_F(ConnectionPoolTest, LetsOnlySoManyWaitAndOnlySoLong) {
    options.mostWaiting = 1;
    pool = MakePool(1, 1);
    Connection first = Take();
    CSignal signal;
    std::thread waiting([&] {
        const CWaitingObserverScope scope(signal);
        Take();
    });
    signal.Await(1);
    Connection connection;
    EXPECT_EQ(pool->Take(connection), HResultFromWin32(1450));
    EXPECT_FALSE(TakeErrorInfo().empty());
    first.reset();
    waiting.join();
    options.longestWait = std::chrono::milliseconds(0);
    pool = MakePool(1, 1);
    first = Take();
    EXPECT_EQ(pool->Take(connection), HResultFromWin32(1460));
    EXPECT_FALSE(TakeErrorInfo().empty());
    first.reset();
    Take();
}

TEST_F(ConnectionPoolTest, LetsNobodyWaitForTheResetOfWhatHeReturns) {
    std::latch server(1);
    database->server = &server;
    options.longestWait = std::chrono::milliseconds(0);
    pool = MakePool(1, 1);
    Take();
    Connection connection;
    EXPECT_EQ(pool->Take(connection), HResultFromWin32(1460)) << "it is not reset yet";
    options.longestWait = std::chrono::hours(1);
    pool = MakePool(1, 1);
    Take();
    database->isClean = false;
    std::thread next([&] { Take(); });
    server.count_down();
    next.join();
    pool = nullptr;
    reset = nullptr;
    EXPECT_EQ(database->open, 0);
    EXPECT_NE(database->closedBy, std::this_thread::get_id());
}

TEST_F(ConnectionPoolTest, LosesNoPlaceToWhoGivesUp) {
    pool = MakePool(1, 1);
    Connection first = Take();
    CAbandonment abandonment;
    CSignal signal;
    std::thread leaving([&] {
        const CAbandonmentScope abandonable(abandonment);
        const CWaitingObserverScope scope(signal);
        Connection connection;
        EXPECT_EQ(pool->Take(connection), DB_E_CANCELED);
    });
    signal.Await(1);
    std::thread staying([&] {
        const CWaitingObserverScope scope(signal);
        const Connection connection = Take();
    });
    signal.Await(2);
    abandonment.Abandon();
    leaving.join();
    first.reset();
    staying.join();
    Take();
}

TEST_F(ConnectionPoolTest, OpensNoMoreThanItMayWhateverComes) {
    std::vector<std::thread> threads;
    for (int number = 0; number != 64; ++number) {
        threads.emplace_back([&, number] {
            CAbandonment abandonment;
            if (number % 5 == 0) abandonment.Abandon();
            const CAbandonmentScope scope(abandonment);
            for (int round = 0; round != 20; ++round) {
                Connection connection;
                const HRESULT result = pool->Take(connection);
                EXPECT_EQ(Succeeded(result), connection != nullptr);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_LE(database->most, 3);
    const Connection all[] = {Take(), Take(), Take()};
}

}  // namespace
}  // namespace quorbel
