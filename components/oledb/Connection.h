#pragma once

#include <cstdint>
#include <memory>

#include "platform/com/Com.h"

namespace quorbel {

/// One connection to a database, used by one thread at a time.
class IConnection {
 public:
    virtual ~IConnection() = default;
    /// Ends what runs, and what runs later until Reset, with DB_E_CANCELED. From any thread; does not wait.
    virtual void Cancel() noexcept = 0;
    /// Makes the connection fit for the next command: all rows have been destroyed. False: close it.
    [[nodiscard]] virtual bool Reset() noexcept = 0;
};

/// Opens connections to one database. From any thread.
class IDatabase {
 public:
    virtual ~IDatabase() = default;
    /// All connections of one database are of one class, which its users know. A failure leaves its
    /// description in platform/com/ErrorInfo.h.
    virtual HRESULT Open(std::unique_ptr<IConnection>& connection) = 0;
    /// A number that changes when another database has taken this one's place, so that connections made
    /// before are of no more use. Quick.
    virtual std::uint64_t Version() const noexcept { return 0; }
    /// Whether resetting or closing its connections may wait, for a server.
    virtual bool ResetMayWait() const noexcept { return false; }
};

}  // namespace quorbel
