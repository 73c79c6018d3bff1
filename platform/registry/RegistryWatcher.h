#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/Lock.h"
#include "platform/registry/ChangeJournal.h"

namespace quorbel {

/// Fires watches: a thread with a connection of its own reads the journal whenever a writer of any process
/// has touched the file of changes, and once an interval for a writer that was killed before it could. A
/// change is matched in as many steps as its key has ancestors, however many watches are armed. When the
/// journal no longer reaches back to the last look, or cannot be read, every watch fires.
class CRegistryWatcher {
 public:
    static CResult<std::unique_ptr<CRegistryWatcher>> Start(std::unique_ptr<CDatabase> database,
                                                            const std::filesystem::path& changed,
                                                            std::chrono::milliseconds interval);
    ~CRegistryWatcher();

    struct CWatch {
        KeyId key = 0;
        WatchScope scope = WatchScope::Key;
        WatchFilter filter = WatchFilter::NamesAndValues;
        std::shared_ptr<CEvent> event;
    };

    /// Arms a watch for the handle `owner`, in place of the one it had, which stays when this fails. Every
    /// change committed before has set the events of the watches armed for it when this returns: whoever arms
    /// a watch on a subtree and then tests events of keys below it misses nothing.
    ErrorCode Arm(const void* owner, CWatch watch);
    void Disarm(const void* owner, KeyId key) noexcept;

 private:
    struct CArmed {
        const void* owner;
        CWatch watch;
    };

    CRegistryWatcher(std::unique_ptr<CDatabase> database, CFileDescriptor changes,
                     std::shared_ptr<CEvent> stop, std::chrono::milliseconds interval, std::int64_t seen);
    void Run() noexcept;
    void WaitForChange() noexcept;
    /// Fires for the changes since the last look; m_lock is held.
    ErrorCode Look();
    /// False when changes may have been missed; m_lock is held.
    bool TryToLook() noexcept;
    void Match(const CChange& change);
    void Fire(const CChange& change, KeyId key);
    void FireAll() noexcept;
    void Remove(const void* owner, KeyId key) noexcept;

    // Constant after construction.
    const CFileDescriptor m_changes;  ///< inotify; closed when there was none left
    const std::shared_ptr<CEvent> m_stop;
    const std::chrono::milliseconds m_interval;

    CMutex m_lock{LockRank::RegistryWatches};  // guards what follows
    const std::unique_ptr<CDatabase> m_database;
    CChangeJournal m_journal;
    std::int64_t m_seen;  ///< the last change that was looked at
    std::unordered_map<KeyId, std::vector<CArmed>> m_armed;

    std::thread m_thread;
};

}  // namespace quorbel
