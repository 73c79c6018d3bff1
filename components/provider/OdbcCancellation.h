#pragma once

#include <condition_variable>
#include <sql.h>
#include <thread>

#include "platform/Lock.h"

namespace quorbel {

/// Ends a connection's calls from other threads. The driver's own cancelling waits for the network and does
/// nothing when it comes before the call has reached the server, so a thread of its own repeats it until the
/// call has ended.
class COdbcCancellation {
 public:
    COdbcCancellation() = default;
    ~COdbcCancellation() { Wait(); }
    COdbcCancellation(const COdbcCancellation&) = delete;
    COdbcCancellation& operator=(const COdbcCancellation&) = delete;

    /// Marks a call of the connection's thread, for the object's life.
    class CCall {
     public:
        CCall(COdbcCancellation& owner, SQLHANDLE statement);
        ~CCall();
        CCall(const CCall&) = delete;
        CCall& operator=(const CCall&) = delete;
        /// False: cancelled before, do not call.
        bool MayRun() const noexcept { return m_mayRun; }

     private:
        COdbcCancellation& m_owner;
        bool m_mayRun;
    };

    /// From any thread; does not wait. Counts until Clear.
    void Cancel() noexcept;
    bool IsCancelled() const;
    /// By the connection's thread, while nothing runs.
    void Clear();

 private:
    void Repeat();
    /// For the thread that cancels, if there is one.
    void Wait();

    mutable CMutex m_mutex{LockRank::Innermost};
    std::condition_variable_any m_changed;
    /// Guarded by m_mutex.
    /// @{
    bool m_cancelled = false;
    bool m_cancelling = false;  ///< the driver is cancelling now
    SQLHANDLE m_running = nullptr;
    std::thread m_thread;
    /// @}
};

}  // namespace quorbel
