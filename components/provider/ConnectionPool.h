#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "components/provider/SqlConnection.h"
#include "platform/Clock.h"
#include "platform/Lock.h"

namespace quorbel {

struct CPoolOptions {
    std::size_t mostOpen = 256;         ///< connections at a time; at least 1
    std::size_t mostIdle = 32;          ///< of them, kept for the next command
    std::chrono::seconds idleTime{60};  ///< after which an idle one is closed, when the pool is next used
};

class CConnectionPool;

/// A connection taken out of a pool, which gets it back at the end. All rows have been destroyed by then.
class CPooledConnection {
 public:
    ~CPooledConnection();
    CPooledConnection(const CPooledConnection&) = delete;
    CPooledConnection& operator=(const CPooledConnection&) = delete;

    ISqlConnection& operator*() const noexcept { return *m_connection; }
    ISqlConnection* operator->() const noexcept { return m_connection.get(); }
    /// Makes it fit for the next command, by a new connection when need be. After a failure it is of no use.
    HRESULT Renew();

 private:
    friend class CConnectionPool;
    CPooledConnection(std::shared_ptr<CConnectionPool> pool, std::unique_ptr<ISqlConnection> connection,
                      std::uint64_t version)
        : m_pool(std::move(pool)), m_connection(std::move(connection)), m_version(version) {}

    const std::shared_ptr<CConnectionPool> m_pool;
    std::unique_ptr<ISqlConnection> m_connection;
    std::uint64_t m_version;  // of the database when it was opened
};

/// The open connections to one database, at most so many at a time; who comes when all are taken waits for
/// his turn. Safe to use from any thread.
class CConnectionPool : public std::enable_shared_from_this<CConnectionPool> {
 public:
    CConnectionPool(std::shared_ptr<ISqlDatabase> database, const CPoolOptions& options,
                    IClock& clock = SystemClock())
        : m_database(std::move(database)), m_options(options), m_clock(clock) {
        m_idle.reserve(options.mostIdle + 1);  // so that giving back needs no memory
    }

    ISqlDatabase& Database() const noexcept { return *m_database; }
    /// Waits without limit of time, but not for work that was abandoned: DB_E_CANCELED.
    HRESULT Take(std::unique_ptr<CPooledConnection>& connection);

 private:
    friend class CPooledConnection;
    struct CIdle {
        std::unique_ptr<ISqlConnection> connection;
        std::uint64_t version;
        std::chrono::nanoseconds since;
    };
    /// Somebody who waits for a place; `idle` comes with it when there is one.
    struct CWaiter {
        std::shared_ptr<CEvent> turn;
        bool isServed = false;
        CIdle idle;
    };
    using Closing = std::vector<CIdle>;

    HRESULT TakePlace(std::uint64_t version, CIdle& idle, Closing& closing);
    HRESULT WaitForPlace(CWaiter& waiter);
    void GivePlace(CIdle idle);
    void GiveBack(std::unique_ptr<ISqlConnection> connection, std::uint64_t version);
    void DropStale(std::uint64_t version, Closing& closing);

    const std::shared_ptr<ISqlDatabase> m_database;
    const CPoolOptions m_options;
    IClock& m_clock;

    CMutex m_lock{LockRank::Innermost};  // guards:
    std::size_t m_taken = 0;             // places, of those who have a connection or are about to open one
    std::vector<CIdle> m_idle;           // the one used last at the end
    std::deque<CWaiter*> m_waiting;      // in order of arrival
};

}  // namespace quorbel
