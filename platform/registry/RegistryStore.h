#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include "platform/Lock.h"
#include "platform/registry/ChangeJournal.h"
#include "platform/registry/KeyTable.h"
#include "platform/registry/RegistryWatcher.h"
#include "platform/registry/SqliteRegistry.h"

namespace quorbel {

/// What the keys of an open registry share: its connection, behind one lock that a thread keeps for the
/// length of its transaction, and its watches. Safe to use from any thread. Whatever throws (there is no
/// memory left) leaves neither a transaction open nor the lock taken.
class CRegistryStore {
 public:
    static CResult<std::shared_ptr<CRegistryStore>> Open(const std::filesystem::path& folder,
                                                         const CRegistryOptions& options);
    CRegistryStore(std::unique_ptr<CDatabase> database, CFileDescriptor changed, std::filesystem::path folder,
                   const CRegistryOptions& options);

    /// Runs `read`, which takes the key table.
    template <class Read>
    auto Reading(Read read) {
        const CAccess access(*this);
        return read(m_keys);
    }

    /// Runs `write`, which takes the key table and the journal and returns an ErrorCode, in the calling
    /// thread's transaction or in one of its own. When it fails or throws, a transaction of its own leaves no
    /// effect; `write` itself fails with errors other than the database's before it changes anything.
    template <class Write>
    ErrorCode Writing(Write write) {
        const CAccess access(*this);
        if (IsInTransaction()) {
            return m_transactionAccess == KeyAccess::Read ? ErrorCode::AccessDenied
                                                          : write(m_keys, m_journal);
        }
        ErrorCode error = BeginChanges();
        if (error != ErrorCode::Success) return error;
        const CRollback rollback(*m_database);
        error = write(m_keys, m_journal);
        return error == ErrorCode::Success ? CommitChanges() : error;
    }

    /// A transaction of the calling thread, up to Commit or Abandon on the same thread. InvalidFunction when
    /// it has one already.
    ErrorCode BeginTransaction(KeyAccess access);
    ErrorCode CommitTransaction();
    void AbandonTransaction() noexcept;

    /// KeyDeleted when the key is gone.
    ErrorCode Arm(const void* owner, CRegistryWatcher::CWatch watch);
    void Disarm(const void* owner, KeyId key) noexcept;

 private:
    /// Holds the lock, unless the calling thread's transaction does.
    class CAccess {
     public:
        explicit CAccess(CRegistryStore& store) : m_lock(store.m_lock, std::defer_lock) {
            if (!store.IsInTransaction()) m_lock.lock();
        }

     private:
        std::unique_lock<CMutex> m_lock;
    };

    /// Rolls back what has not been committed when it ends.
    class CRollback {
     public:
        explicit CRollback(CDatabase& database) noexcept : m_database(database) {}
        ~CRollback() { m_database.Rollback(); }
        CRollback(const CRollback&) = delete;
        CRollback& operator=(const CRollback&) = delete;

     private:
        CDatabase& m_database;
    };

    bool IsInTransaction() const noexcept { return m_transactionThread.load() == std::this_thread::get_id(); }
    ErrorCode BeginChanges();
    ErrorCode BeginReading();
    ErrorCode CommitChanges();
    void Announce() noexcept;
    ErrorCode StartWatcher();
    void EndTransaction() noexcept;

    // Constant after construction.
    const CFileDescriptor m_changed;
    const std::filesystem::path m_folder;
    const CRegistryOptions m_options;

    std::atomic<std::thread::id> m_transactionThread;  ///< that of no thread when there is none

    CMutex m_lock{LockRank::Registry};
    // Guarded by m_lock.
    const std::unique_ptr<CDatabase> m_database;
    CKeyTable m_keys;
    CChangeJournal m_journal;
    KeyAccess m_transactionAccess = KeyAccess::ReadWrite;

    // Started by the first watch, under m_lock.
    std::unique_ptr<CRegistryWatcher> m_watcher;
    std::atomic<CRegistryWatcher*> m_startedWatcher = nullptr;
};

}  // namespace quorbel
