#pragma once

#include <memory>
#include <string>

#include "components/provider/ConnectionPool.h"
#include "components/provider/SqlCommandCache.h"
#include "platform/Lock.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// Which database the provider's sessions use, and what they share. Safe to use from any thread.
class CDatabaseSettings {
 public:
    explicit CDatabaseSettings(std::shared_ptr<IKey> localMachine)
        : m_localMachine(std::move(localMachine)) {}

    /// The pool of the database that the registry names at this moment. E_FAIL when it names none.
    HRESULT Pool(std::shared_ptr<CConnectionPool>& pool);
    const std::shared_ptr<CSqlCommandCache>& Commands() const noexcept { return m_commands; }

 private:
    /// What a pool depends on.
    struct CChoice {
        std::wstring database;    // an SQLite file
        std::wstring connection;  // for ODBC, goes before the file
        std::size_t mostOpen = 0;
        bool operator==(const CChoice&) const = default;
    };
    HRESULT Read(CChoice& choice) const;

    const std::shared_ptr<IKey> m_localMachine;
    const std::shared_ptr<CSqlCommandCache> m_commands = std::make_shared<CSqlCommandCache>();

    CMutex m_lock{LockRank::Innermost};  // guards:
    CChoice m_choice;
    std::shared_ptr<CConnectionPool> m_pool;  // of m_choice
};

}  // namespace quorbel
