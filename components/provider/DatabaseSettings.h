#pragma once

#include <memory>
#include <string>

#include "components/oledb/ConnectionPool.h"
#include "components/provider/SqlCommandCache.h"
#include "components/provider/SqlConnection.h"
#include "platform/Lock.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// Which database the provider's sessions use, and what they share. Safe to use from any thread.
class CDatabaseSettings {
 public:
    explicit CDatabaseSettings(std::shared_ptr<IKey> localMachine);

    /// The pool of the database that the registry names; a change counts from the moment at which watches
    /// of the key are set off. E_FAIL when it names none.
    HRESULT Pool(std::shared_ptr<CConnectionPool>& pool);
    const std::shared_ptr<CSqlCommandCache>& Commands() const noexcept { return m_commands; }

 private:
    /// What a pool depends on.
    struct CChoice {
        std::wstring database;
        std::wstring connection;  // instead of the database, unless it is empty
        std::size_t mostOpen = 0;
        bool operator==(const CChoice&) const = default;
    };
    static std::shared_ptr<ISqlDatabase> Open(const CChoice& choice);
    HRESULT Update(std::shared_ptr<CConnectionPool>& former);
    /// Opens the key, and has its changes set m_changed when that can be had.
    ErrorCode Follow();
    bool Arm();
    HRESULT Read(ErrorCode opened, CChoice& choice) const;

    const std::shared_ptr<IKey> m_localMachine;
    const std::shared_ptr<CEvent> m_changed;  // null: none was to be had
    const std::shared_ptr<CSqlCommandCache> m_commands = std::make_shared<CSqlCommandCache>();
    const std::shared_ptr<CConnectionReset> m_reset = std::make_shared<CConnectionReset>();

    CMutex m_lock{LockRank::DatabaseSettings};  // guards:
    std::shared_ptr<IKey> m_key;                // the one that is followed
    bool m_isFollowed = false;                  // m_choice holds until m_changed is set
    CChoice m_choice;
    std::shared_ptr<CConnectionPool> m_pool;  // of m_choice
};

}  // namespace quorbel
