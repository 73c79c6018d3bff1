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
        std::wstring database;
        std::wstring connection;  // instead of the database, unless it is empty
        std::size_t mostOpen = 0;
        bool operator==(const CChoice&) const = default;
    };
    static std::shared_ptr<ISqlDatabase> Open(const CChoice& choice);
    HRESULT Read(CChoice& choice);
    CResult<std::vector<CNamedValue>> Values();

    const std::shared_ptr<IKey> m_localMachine;
    const std::shared_ptr<CSqlCommandCache> m_commands = std::make_shared<CSqlCommandCache>();

    CMutex m_lock{LockRank::Innermost};  // guards:
    std::shared_ptr<IKey> m_key;         // open, since opening costs more than reading; null before
    CChoice m_choice;
    std::shared_ptr<CConnectionPool> m_pool;  // of m_choice
};

}  // namespace quorbel
