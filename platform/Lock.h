#pragma once

#include <cstdint>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>

namespace quorbel {

/// The one order in which locks are taken: whoever holds a lock takes only locks of a higher rank.
/// docs/architecture.md says what each guards. Debug builds check every acquisition.
enum class LockRank : std::uint8_t {
    ListenerConfiguration = 10,  ///< lock A: a listener's pointer to its configuration
    RoutingCache = 20,           ///< lock B: a listener's routing cache
    NotFoundEvents = 30,
    Users = 32,             ///< an authenticator's users
    Cookies = 34,           ///< its long-lived tokens
    Sessions = 36,          ///< its sessions
    Challenges = 38,        ///< its users' pending challenges
    FolderSearch = 40,      ///< the watched folders and the searched paths
    FolderFollowers = 43,   ///< who follows one searched path
    FolderFilling = 46,     ///< one thread at a time reads a folder into its listing
    FolderListing = 50,     ///< the names in one folder
    SearchManager = 54,     ///< the search component; held while it is made
    HttpServer = 55,        ///< the hosts of the HTTP engine, their ports and sockets
    HttpLoops = 57,         ///< the loops that are watched for work that waits
    Certificates = 60,      ///< the followed certificates and what is known of their files
    Fetching = 61,          ///< a query's rows; held while one is fetched and rendered
    DatabaseSettings = 62,  ///< which database queries use; held while the settings are read
    DatabaseSession = 63,   ///< which command a session runs; held while that is cancelled
    ThreadSet = 65,         ///< which threads of a set are idle; held while one is chosen or started
    ServiceStatus = 67,     ///< the state that the service manager was told; held while it is told
    EventLog = 70,
    TraceSaving = 78,  ///< the folder of trace files; held while they are written
    TraceLogger = 80,
    ConsoleEcho = 85,
    Registry = 90,
    RegistryWatches = 100,
    ScriptEngines = 110,  ///< the loaded script engine libraries; held while one is loaded
    Innermost = 255,      ///< locks under which no other is taken
};

namespace detail {
#ifdef NDEBUG
inline void NoteAcquire(LockRank) noexcept {}
inline void NoteRelease(LockRank) noexcept {}
#else
void NoteAcquire(LockRank rank) noexcept;
void NoteRelease(LockRank rank) noexcept;
#endif
}  // namespace detail

/// A mutex with a place in the lock order. For std::lock_guard and std::unique_lock.
class CMutex {
 public:
    explicit CMutex(LockRank rank) noexcept : m_rank(rank) {}
    void lock() {
        detail::NoteAcquire(m_rank);
        m_mutex.lock();
    }
    void unlock() {
        detail::NoteRelease(m_rank);
        m_mutex.unlock();
    }

 private:
    const LockRank m_rank;
    std::mutex m_mutex;
};

/// A reader/writer lock under which a waiting writer keeps new readers out, so that overlapping readers never
/// starve it (std::shared_mutex of this system does). A thread must not take it shared twice. For
/// std::shared_lock, std::lock_guard and std::unique_lock.
class CReadWriteLock {
 public:
    explicit CReadWriteLock(LockRank rank) noexcept;
    ~CReadWriteLock() { ::pthread_rwlock_destroy(&m_lock); }
    CReadWriteLock(const CReadWriteLock&) = delete;
    CReadWriteLock& operator=(const CReadWriteLock&) = delete;

    void lock() {
        detail::NoteAcquire(m_rank);
        ::pthread_rwlock_wrlock(&m_lock);
    }
    void lock_shared() {
        detail::NoteAcquire(m_rank);
        ::pthread_rwlock_rdlock(&m_lock);
    }
    /// Fails at once while a writer has the lock or waits for it.
    bool try_lock_shared() {
        detail::NoteAcquire(m_rank);
        if (::pthread_rwlock_tryrdlock(&m_lock) == 0) return true;
        detail::NoteRelease(m_rank);
        return false;
    }
    void unlock() {
        detail::NoteRelease(m_rank);
        ::pthread_rwlock_unlock(&m_lock);
    }
    void unlock_shared() { unlock(); }

 private:
    const LockRank m_rank;
    pthread_rwlock_t m_lock;
};

}  // namespace quorbel
