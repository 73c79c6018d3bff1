#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <thread>

#include "components/oledb/Connection.h"
#include "platform/Lock.h"

namespace quorbel {

class CConnectionPool;

/// Resets and closes connections where that may wait for a server, on one thread of its own, so that nobody
/// who returns one waits. Safe to use from any thread but its own.
class CConnectionReset {
 public:
    struct CReturned {
        std::shared_ptr<CConnectionPool> pool;  ///< released on the thread; null when it does not matter
        std::unique_ptr<IConnection> connection;
        std::uint64_t version = 0;  ///< of the database when the connection was opened
        bool hasPlace = false;      ///< it goes back to the pool, once it is reset; else it is closed
    };
    using Returned = std::list<CReturned>;

    CConnectionReset() = default;
    /// Ends what it was given; connections that still wait for their reset are closed instead.
    ~CConnectionReset();
    CConnectionReset(const CConnectionReset&) = delete;
    CConnectionReset& operator=(const CConnectionReset&) = delete;

    /// Does the work itself when no thread can be started.
    void Take(Returned returned) noexcept;

 private:
    bool HasThread() noexcept;
    void Run() noexcept;
    static void Finish(CReturned& one, bool isStopping) noexcept;

    CMutex m_lock{LockRank::Innermost};  // guards what follows
    std::condition_variable_any m_changed;
    Returned m_waiting;
    bool m_isStopping = false;
    std::thread m_thread;  // once there was something to do
};

}  // namespace quorbel
