#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "components/oledb/Connection.h"
#include "components/oledb/ConnectionReset.h"
#include "platform/Clock.h"
#include "platform/Lock.h"

namespace quorbel {

struct CPoolOptions {
    std::size_t mostOpen = 256;         ///< connections at a time; at least 1
    std::size_t mostIdle = 32;          ///< of them, kept for the next command
    std::chrono::seconds idleTime{60};  ///< after which an idle one is closed, when the pool is next used
    std::size_t mostWaiting = 1024;     ///< for a connection at a time
    std::chrono::milliseconds longestWait{30'000};  ///< for a connection
};

class CConnectionPool;

/// A connection taken out of a pool, which gets it back at the end, without a wait. All rows have been
/// destroyed by then.
class CPooledConnection {
 public:
    ~CPooledConnection();
    CPooledConnection(const CPooledConnection&) = delete;
    CPooledConnection& operator=(const CPooledConnection&) = delete;

    IConnection& operator*() const noexcept { return *Own().connection; }
    IConnection* operator->() const noexcept { return Own().connection.get(); }
    /// Makes it fit for the next command, by a new connection when need be. After a failure it can only be
    /// renewed again.
    HRESULT Renew();

 private:
    friend class CConnectionPool;
    CPooledConnection(std::shared_ptr<CConnectionPool> pool, std::shared_ptr<CConnectionReset> reset)
        : m_reset(std::move(reset)) {
        m_own.emplace_back().pool = std::move(pool);
    }
    const CConnectionReset::CReturned& Own() const noexcept { return m_own.front(); }
    CConnectionReset::CReturned& Own() noexcept { return m_own.front(); }

    const std::shared_ptr<CConnectionReset> m_reset;  // null: it is reset where it is
    CConnectionReset::Returned m_own;                 // the one, so that returning it needs no memory
};

/// The open connections to one database, at most so many at a time; who comes when all are taken waits for
/// his turn, unless too many do already. Safe to use from any thread.
class CConnectionPool : public std::enable_shared_from_this<CConnectionPool> {
 public:
    /// `reset` resets and closes the connections of a database with which that may wait.
    CConnectionPool(std::shared_ptr<IDatabase> database, const CPoolOptions& options,
                    std::weak_ptr<CConnectionReset> reset, IClock& clock = SystemClock())
        : m_database(std::move(database)), m_options(options), m_reset(std::move(reset)), m_clock(clock) {
        m_idle.reserve(options.mostIdle + 1);  // so that giving back needs no memory
    }

    IDatabase& Database() const noexcept { return *m_database; }
    /// Waits for a connection when all are taken: HResultFromWin32(1450) when too many do already, (1460)
    /// after the longest wait, DB_E_CANCELED for work that was abandoned.
    HRESULT Take(std::unique_ptr<CPooledConnection>& connection);

 private:
    friend class CPooledConnection;
    friend class CConnectionReset;
    struct CIdle {
        std::unique_ptr<IConnection> connection;
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

    /// Null unless a reset may wait.
    std::shared_ptr<CConnectionReset> Reset() const noexcept {
        return m_database->ResetMayWait() ? m_reset.lock() : nullptr;
    }
    HRESULT TakePlace(std::uint64_t version, CIdle& idle, Closing& closing);
    bool TakeFreePlace(CIdle& idle) noexcept;
    HRESULT WaitForPlace(CWaiter& waiter, CEvent* abandoned);
    void GivePlace(CIdle idle) noexcept;
    /// Resets it; a connection that is null gives back its place alone.
    void GiveBack(std::unique_ptr<IConnection> connection, std::uint64_t version) noexcept;
    static void Close(Closing closing, CConnectionReset& reset);
    void DropStale(std::uint64_t version, Closing& closing);

    const std::shared_ptr<IDatabase> m_database;
    const CPoolOptions m_options;
    const std::weak_ptr<CConnectionReset> m_reset;  // whose thread may be the last to release the pool
    IClock& m_clock;

    CMutex m_lock{LockRank::Innermost};  // guards:
    std::size_t m_taken = 0;             // places, of those who have a connection or are about to open one
    std::vector<CIdle> m_idle;           // the one used last at the end
    std::deque<CWaiter*> m_waiting;      // in order of arrival
};

}  // namespace quorbel
