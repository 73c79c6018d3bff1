#pragma once

#include <atomic>
#include <memory>

#include "components/oledb/ConnectionPool.h"
#include "platform/Lock.h"

namespace quorbel {

/// Whether a command was cancelled; also what tells commands apart.
using CCancelFlag = std::atomic<bool>;

/// The connection of a session, which its commands use one after the other.
class CSessionConnection {
 public:
    explicit CSessionConnection(std::unique_ptr<CPooledConnection> connection)
        : m_connection(std::move(connection)) {}

    /// Takes the connection for one execution of a command. DB_E_OBJECTOPEN while another has it,
    /// DB_E_CANCELED for a command that was cancelled.
    HRESULT Take(const CCancelFlag& command);
    /// When the rows are gone.
    void GiveBack() noexcept;
    /// Cancels what the command runs, if anything. From any thread.
    void Cancel(const CCancelFlag& command) noexcept;

    /// The connection, which is of the class that the database opens.
    template <class Connection>
    Connection& Get() const noexcept {
        return static_cast<Connection&>(**m_connection);
    }

 private:
    const std::unique_ptr<CPooledConnection> m_connection;

    CMutex m_lock{LockRank::DatabaseSession};  // guards:
    bool m_isTaken = false;
    bool m_isUsed = false;                   // by a command before
    const CCancelFlag* m_command = nullptr;  // the one to cancel
};

}  // namespace quorbel
