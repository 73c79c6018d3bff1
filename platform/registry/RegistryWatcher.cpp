#include "platform/registry/RegistryWatcher.h"

#include <poll.h>
#include <sys/inotify.h>

#include "platform/Thread.h"

namespace quorbel {

namespace {

bool Counts(ChangeKind kind, WatchFilter filter) noexcept {
    return (static_cast<std::uint32_t>(kind) & static_cast<std::uint32_t>(filter)) != 0;
}

/// Closed when the system has no inotify instance left: the interval then has to do.
CFileDescriptor WatchFile(const std::filesystem::path& file) {
    CFileDescriptor descriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!descriptor.IsOpen()) return descriptor;
    if (::inotify_add_watch(descriptor.Get(), file.c_str(), IN_MODIFY) < 0) return CFileDescriptor();
    return descriptor;
}

}  // namespace

CResult<std::unique_ptr<CRegistryWatcher>> CRegistryWatcher::Start(std::unique_ptr<CDatabase> database,
                                                                   const std::filesystem::path& changed,
                                                                   std::chrono::milliseconds interval) {
    CResult<std::shared_ptr<CEvent>> stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return stop.Error();
    CFileDescriptor changes = WatchFile(changed);
    // Not earlier: a change before the file is watched must not be waited for.
    const CResult<std::int64_t> seen = CChangeJournal(*database).Last();
    if (!seen.IsOk()) return seen.Error();
    std::unique_ptr<CRegistryWatcher> watcher(new CRegistryWatcher(
        std::move(database), std::move(changes), std::move(stop).Value(), interval, seen.Value()));
    CResult<std::thread> thread = StartThread("RegistryWatcher", [raw = watcher.get()] { raw->Run(); });
    if (!thread.IsOk()) return thread.Error();
    watcher->m_thread = std::move(thread).Value();
    return watcher;
}

CRegistryWatcher::CRegistryWatcher(std::unique_ptr<CDatabase> database, CFileDescriptor changes,
                                   std::shared_ptr<CEvent> stop, std::chrono::milliseconds interval,
                                   std::int64_t seen)
    : m_changes(std::move(changes)),
      m_stop(std::move(stop)),
      m_interval(interval),
      m_database(std::move(database)),
      m_journal(*m_database),
      m_seen(seen) {}

CRegistryWatcher::~CRegistryWatcher() {
    m_stop->Set();
    if (m_thread.joinable()) m_thread.join();
}

ErrorCode CRegistryWatcher::Arm(const void* owner, CWatch watch) {
    const std::lock_guard lock(m_lock);
    if (const ErrorCode error = Look(); error != ErrorCode::Success) return error;
    std::vector<CArmed>& watches = m_armed[watch.key];
    const auto old = std::find_if(watches.begin(), watches.end(),
                                  [owner](const CArmed& armed) { return armed.owner == owner; });
    if (old != watches.end()) {
        old->watch = std::move(watch);
    } else {
        watches.push_back({owner, std::move(watch)});
    }
    return ErrorCode::Success;
}

void CRegistryWatcher::Disarm(const void* owner, KeyId key) noexcept {
    const std::lock_guard lock(m_lock);
    Remove(owner, key);
}

void CRegistryWatcher::Remove(const void* owner, KeyId key) noexcept {
    const auto found = m_armed.find(key);
    if (found == m_armed.end()) return;
    std::erase_if(found->second, [owner](const CArmed& armed) { return armed.owner == owner; });
    if (found->second.empty()) m_armed.erase(found);
}

void CRegistryWatcher::Run() noexcept {
    while (!m_stop->Test()) {
        WaitForChange();
        const std::lock_guard lock(m_lock);
        if (!TryToLook()) FireAll();
    }
}

bool CRegistryWatcher::TryToLook() noexcept try {
    const ErrorCode error = Look();
    // A writer that holds the file too long will still be seen at the next look.
    return error == ErrorCode::Success || error == ErrorCode::Busy;
} catch (const std::exception&) {
    return false;  // out of memory
}

void CRegistryWatcher::WaitForChange() noexcept {
    std::array entries{pollfd{m_stop->Descriptor(), POLLIN, 0}, pollfd{m_changes.Get(), POLLIN, 0}};
    ::poll(entries.data(), entries.size(), static_cast<int>(m_interval.count()));
    std::array<char, 4096> notices;
    while (m_changes.IsOpen() && ::read(m_changes.Get(), notices.data(), notices.size()) > 0) continue;
}

ErrorCode CRegistryWatcher::Look() {
    const CResult<std::vector<CChange>> changes = m_journal.Since(m_seen);
    if (!changes.IsOk()) return changes.Error();
    if (changes.Value().empty()) return ErrorCode::Success;
    if (changes.Value().front().sequence != m_seen + 1) {
        FireAll();
    } else {
        for (const CChange& change : changes.Value()) Match(change);
    }
    m_seen = changes.Value().back().sequence;
    return ErrorCode::Success;
}

void CRegistryWatcher::Match(const CChange& change) {
    for (KeyId key : change.keys) Fire(change, key);
}

void CRegistryWatcher::Fire(const CChange& change, KeyId key) {
    const auto found = m_armed.find(key);
    if (found == m_armed.end()) return;
    std::erase_if(found->second, [&](const CArmed& armed) {
        const bool inScope = key == change.keys.front() || armed.watch.scope == WatchScope::Subtree;
        const bool counts =
            change.kind == ChangeKind::Deleted || (inScope && Counts(change.kind, armed.watch.filter));
        if (counts) armed.watch.event->Set();
        return counts;
    });
    if (found->second.empty()) m_armed.erase(found);
}

void CRegistryWatcher::FireAll() noexcept {
    for (const auto& [key, watches] : m_armed) {
        for (const CArmed& armed : watches) armed.watch.event->Set();
    }
    m_armed.clear();
}

}  // namespace quorbel
