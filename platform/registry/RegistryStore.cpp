#include "platform/registry/RegistryStore.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/registry/RegistryFile.h"

namespace quorbel {

namespace {

constexpr const char* kDatabaseName = "registry.db";
constexpr const char* kChangedName = "registry.changed";

CResult<CFileDescriptor> OpenChanged(const std::filesystem::path& file) {
    CFileDescriptor descriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
    // The process's mask may have taken away even the owner's access; another owner's file is left alone.
    Ignore(::fchmod(descriptor.Get(), S_IRUSR | S_IWUSR));
    return descriptor;
}

}  // namespace

CResult<std::shared_ptr<CRegistryStore>> CRegistryStore::Open(const std::filesystem::path& folder,
                                                              const CRegistryOptions& options) {
    const ErrorCode error = EnsureRegistryFile(folder / kDatabaseName);
    if (error != ErrorCode::Success) return error;
    CResult<std::unique_ptr<CDatabase>> database = ConnectRegistryFile(
        folder / kDatabaseName, {.busyTimeout = options.busyTimeout, .maximumBytes = options.maximumBytes});
    if (!database.IsOk()) return database.Error();
    CResult<CFileDescriptor> changed = OpenChanged(folder / kChangedName);
    if (!changed.IsOk()) return changed.Error();
    return std::make_shared<CRegistryStore>(std::move(database).Value(), std::move(changed).Value(), folder,
                                            options);
}

CRegistryStore::CRegistryStore(std::unique_ptr<CDatabase> database, CFileDescriptor changed,
                               std::filesystem::path folder, const CRegistryOptions& options)
    : m_changed(std::move(changed)),
      m_folder(std::move(folder)),
      m_options(options),
      m_database(std::move(database)),
      m_keys(*m_database),
      m_journal(*m_database) {}

ErrorCode CRegistryStore::BeginChanges() {
    m_journal.Start();
    return m_database->Begin();
}

ErrorCode CRegistryStore::BeginReading() {
    m_journal.Start();  // which leaves it without changes
    return m_database->BeginRead();
}

ErrorCode CRegistryStore::CommitChanges() {
    const bool changed = m_journal.HasChanges();
    if (changed) {
        // A failure stays with the transaction, and Commit returns it.
        Ignore(m_journal.Prune());
    }
    const ErrorCode error = m_database->Commit();
    if (changed && error == ErrorCode::Success) Announce();
    return error;
}

void CRegistryStore::Announce() noexcept {
    // Watchers look on their own when this fails.
    Ignore(::pwrite(m_changed.Get(), "\n", 1, 0));
}

ErrorCode CRegistryStore::BeginTransaction(KeyAccess access) {
    if (IsInTransaction()) return ErrorCode::InvalidFunction;
    std::unique_lock lock(m_lock);
    const ErrorCode error = access == KeyAccess::Read ? BeginReading() : BeginChanges();
    if (error != ErrorCode::Success) {
        m_database->Rollback();
        return error;
    }
    m_transactionAccess = access;
    m_transactionThread = std::this_thread::get_id();
    Ignore(lock.release());  // EndTransaction unlocks it
    return ErrorCode::Success;
}

ErrorCode CRegistryStore::CommitTransaction() {
    struct CEnd {
        CRegistryStore& store;
        // After a commit there is nothing left to roll back.
        ~CEnd() { store.AbandonTransaction(); }
    };
    const CEnd end{*this};
    return CommitChanges();
}

void CRegistryStore::AbandonTransaction() noexcept {
    m_database->Rollback();
    EndTransaction();
}

void CRegistryStore::EndTransaction() noexcept {
    m_transactionThread = std::thread::id();
    m_lock.unlock();
}

ErrorCode CRegistryStore::StartWatcher() {
    if (m_watcher) return ErrorCode::Success;
    CResult<std::unique_ptr<CDatabase>> database =
        ConnectRegistryFile(m_folder / kDatabaseName, {.busyTimeout = m_options.busyTimeout});
    if (!database.IsOk()) return database.Error();
    CResult<std::unique_ptr<CRegistryWatcher>> watcher = CRegistryWatcher::Start(
        std::move(database).Value(), m_folder / kChangedName, m_options.watchInterval);
    if (!watcher.IsOk()) return watcher.Error();
    m_watcher = std::move(watcher).Value();
    m_startedWatcher = m_watcher.get();
    return ErrorCode::Success;
}

ErrorCode CRegistryStore::Arm(const void* owner, CRegistryWatcher::CWatch watch) {
    const CAccess access(*this);
    ErrorCode error = StartWatcher();
    if (error != ErrorCode::Success) return error;
    const KeyId key = watch.key;
    error = m_watcher->Arm(owner, std::move(watch));
    if (error != ErrorCode::Success) return error;
    // Looked at last: a deletion before the arming is found here, a later one fires the watch.
    const CResult<bool> exists = m_keys.Exists(key);
    if (exists.IsOk() && exists.Value()) return ErrorCode::Success;
    m_watcher->Disarm(owner, key);
    return exists.IsOk() ? ErrorCode::KeyDeleted : exists.Error();
}

void CRegistryStore::Disarm(const void* owner, KeyId key) noexcept {
    if (CRegistryWatcher* watcher = m_startedWatcher.load()) watcher->Disarm(owner, key);
}

}  // namespace quorbel
