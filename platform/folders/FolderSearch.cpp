#include "platform/folders/FolderSearch.h"

#include <cerrno>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <system_error>

#include "platform/LocalPath.h"
#include "platform/Text.h"
#include "platform/fault/AlternateStack.h"
#include "platform/folders/FolderWalk.h"
#include "platform/folders/FolderWatches.h"

namespace quorbel {

namespace {

/// Searches of a path that changes all the while give up after this many times and read the folder once.
constexpr int kAttempts = 3;

/// What one search looks for.
struct CRequest {
    std::string folder;
    CWildcardPattern name;
};

/// Whether no segment is longer than the name of a file can be.
bool CanExist(std::string_view path) noexcept {
    for (std::size_t start = 0; start <= path.size();) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (end - start > NAME_MAX) return false;
        start = end + 1;
    }
    return true;
}

std::optional<CRequest> Parse(std::wstring_view pattern, std::wstring_view kind) {
    const auto separator = pattern.find_last_of(L"/\\");
    if (separator == pattern.npos) return std::nullopt;
    const std::wstring_view name = pattern.substr(separator + 1);
    if (name.find(L'\0') != name.npos || FromUtf8(ToUtf8(name)) != name) return std::nullopt;
    CResult<std::string> folder = ToLocalPath(pattern.substr(0, separator + 1));
    if (!folder.IsOk() || folder.Value().size() >= PATH_MAX) return std::nullopt;
    std::string& path = folder.Value();
    CWildcardPattern wanted(name, kind);
    if (!CanExist(path) || wanted.LeastBytes() > NAME_MAX) return std::nullopt;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return CRequest{std::move(path), std::move(wanted)};
}

/// Whether the path still leads where it led when it was followed.
bool IsCurrent(const CSearchedPath& path) noexcept {
    struct stat status;
    if (::stat(path.path.c_str(), &status) != 0) {
        return !path.listing && (errno == ENOENT || errno == ENOTDIR);
    }
    if (!path.listing) return !S_ISDIR(status.st_mode);
    return status.st_dev == path.device && status.st_ino == path.inode;
}

CFileDescriptor OpenForReading(int base, const char* folder) noexcept {
    return CFileDescriptor(::openat(base, folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
}

NameChange ChangeOf(std::uint32_t mask) noexcept {
    const bool isFolder = (mask & IN_ISDIR) != 0;
    if (mask & IN_CREATE) return isFolder ? NameChange::FolderAppeared : NameChange::Appeared;
    if (mask & IN_MOVED_TO) return isFolder ? NameChange::FolderMovedIn : NameChange::MovedIn;
    return mask & IN_MOVED_FROM ? NameChange::MovedAway : NameChange::Vanished;
}

/// While it lives, this thread, and every thread it starts, takes no signal but those of its own faults.
class CSignalsForOthers {
 public:
    CSignalsForOthers() noexcept {
        sigset_t signals;
        ::sigfillset(&signals);
        for (int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) ::sigdelset(&signals, own);
        ::pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    }
    ~CSignalsForOthers() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CSignalsForOthers(const CSignalsForOthers&) = delete;
    CSignalsForOthers& operator=(const CSignalsForOthers&) = delete;

 private:
    sigset_t m_before;
};

}  // namespace

class CFolderSearch final : public IFolderSearch {
 public:
    CFolderSearch(CFolderSearchOptions options, CFileDescriptor inotify, std::shared_ptr<CEvent> stop);
    ~CFolderSearch() override;

    std::shared_ptr<IFolderFollower> Follow(std::shared_ptr<CEvent> changed) override;
    CFolderMatches Find(std::wstring_view pattern, std::wstring_view kind,
                        const std::shared_ptr<IFolderFollower>& follower) override;
    CFolderSearchCounters Counters() const override;

 private:
    using PathPointer = std::shared_ptr<CSearchedPath>;

    PathPointer Searched(const std::string& folder);
    PathPointer Remembered(const std::string& folder) const;
    bool IsWorthFollowing(const std::string& folder) const;
    PathPointer FollowPath(const std::string& folder);
    bool FollowToItsEnd(const PathPointer& path);
    bool FillListing(const PathPointer& path, int folder);
    PathPointer Remember(const PathPointer& path);
    int Watch(int folder, std::string_view name, const PathPointer& path);
    std::optional<CFolderMatches> Answer(CSearchedPath& path, const CRequest& request,
                                         const std::shared_ptr<CFolderFollower>& follower) const;
    CFolderMatches ReadAnew(const CRequest& request);
    void NoteSize(int folder, std::size_t names);

    void Forget(const PathPointer& path);
    // These want m_lock held exclusively.
    PathPointer Keep(const PathPointer& path, CFollowersToTell& tell);
    void Drop(const PathPointer& path, CFollowersToTell& tell);
    void Drop(const SearchedPaths& paths, CFollowersToTell& tell);
    void KeepWithinMaximum(const PathPointer& newest, CFollowersToTell& tell);

    void Run();
    void TakeAllChanges();
    void GiveUp() noexcept;
    bool WaitForChanges() const;
    bool TakeChanges();
    void Take(const inotify_event& event, CFollowersToTell& tell);
    void TakeWholeFolder(int watch, CFollowersToTell& tell);
    void TakeName(int watch, std::uint32_t mask, std::string_view name, CFollowersToTell& tell);
    std::shared_ptr<CFolderListing> ListingOf(int watch) const;
    bool CollectConcerned(int watch, std::string_view name, CFollowersToTell& tell) const;

    const CFolderSearchOptions m_options;
    const std::shared_ptr<CEvent> m_stop;
    CFolderTally m_tally;
    /// Counts the paths in twos: a path searched again comes after the newest one and before the next.
    std::atomic<std::uint64_t> m_newest = 0;

    // Shared for looking something up, exclusive for every change of who watches what.
    mutable CReadWriteLock m_lock{LockRank::FolderSearch};
    CFolderWatches m_watches;                              // guarded by m_lock
    std::unordered_map<std::string, PathPointer> m_paths;  // guarded by m_lock
    // By device and inode, the folders that held more than the maximum when they were last read; guarded by
    // m_lock. They are few: each has that many files.
    std::set<std::pair<dev_t, ino_t>> m_tooLarge;
    bool m_hasGivenUp = false;  // guarded by m_lock

    std::thread m_thread;
};

CFolderSearch::CFolderSearch(CFolderSearchOptions options, CFileDescriptor inotify,
                             std::shared_ptr<CEvent> stop)
    : m_options(std::move(options)), m_stop(std::move(stop)), m_watches(std::move(inotify), m_tally) {
    const CSignalsForOthers whileStarting;
    m_thread = std::thread([this] {
        const CAlternateStack faults;
        Run();
    });
    ::pthread_setname_np(m_thread.native_handle(), "FolderSearch");
}

CFolderSearch::~CFolderSearch() {
    m_stop->Set();
    m_thread.join();
}

std::shared_ptr<IFolderFollower> CFolderSearch::Follow(std::shared_ptr<CEvent> changed) {
    return std::make_shared<CFolderFollower>(std::move(changed));
}

CFolderMatches CFolderSearch::Find(std::wstring_view pattern, std::wstring_view kind,
                                   const std::shared_ptr<IFolderFollower>& follower) {
    const auto request = Parse(pattern, kind);
    if (!request) return {};
    const auto ownFollower = std::static_pointer_cast<CFolderFollower>(follower);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const PathPointer path = Searched(request->folder);
        if (!path) break;
        if (auto matches = Answer(*path, *request, ownFollower)) return std::move(*matches);
        Forget(path);
    }
    return ReadAnew(*request);
}

CFolderSearchCounters CFolderSearch::Counters() const {
    const std::shared_lock hold(m_lock);
    return {m_tally.listings, m_tally.readings,  m_tally.patches,
            m_paths.size(),   m_watches.Count(), m_tally.kept};
}

/// The path, followed now or before; none when it cannot be followed.
CFolderSearch::PathPointer CFolderSearch::Searched(const std::string& folder) {
    if (PathPointer path = Remembered(folder)) {
        if (IsCurrent(*path)) return path;
        Forget(path);
    }
    return IsWorthFollowing(folder) ? FollowPath(folder) : nullptr;
}

CFolderSearch::PathPointer CFolderSearch::Remembered(const std::string& folder) const {
    const std::shared_lock hold(m_lock);
    const auto found = m_paths.find(folder);
    if (found == m_paths.end()) return nullptr;
    const auto now = m_newest.load(std::memory_order_relaxed) + 1;
    auto& lastUsed = found->second->lastUsed;
    if (lastUsed.load(std::memory_order_relaxed) != now) lastUsed.store(now, std::memory_order_relaxed);
    return found->second;
}

bool CFolderSearch::IsWorthFollowing(const std::string& folder) const {
    struct stat status;
    const bool exists = ::stat(folder.c_str(), &status) == 0;
    const std::shared_lock hold(m_lock);
    return !m_hasGivenUp && !(exists && m_tooLarge.contains({status.st_dev, status.st_ino}));
}

CFolderSearch::PathPointer CFolderSearch::FollowPath(const std::string& folder) {
    auto path = std::make_shared<CSearchedPath>(folder);
    if (FollowToItsEnd(path)) return Remember(path);
    Forget(path);
    return nullptr;
}

/// Whether every change of the path's answers will be told from now on.
bool CFolderSearch::FollowToItsEnd(const PathPointer& path) {
    CFolderWalk walk([&](int folder, std::string_view name) { return Watch(folder, name, path); });
    switch (walk.Go(path->path)) {
        case WalkEnd::NotFollowed: return false;
        case WalkEnd::Nothing: return true;
        case WalkEnd::Folder: return FillListing(path, walk.Folder());
    }
    return false;
}

bool CFolderSearch::FillListing(const PathPointer& path, int folder) {
    struct stat status;
    if (::fstat(folder, &status) != 0) return false;
    path->device = status.st_dev;
    path->inode = status.st_ino;
    if (Watch(folder, kEveryName, path) != 0) return false;
    const CFileDescriptor readable = OpenForReading(folder, ".");
    if (!readable.IsOpen()) return false;
    // The listing may be lost meanwhile, with the path; then the next attempt follows the path again.
    return path->listing->Fill(readable.Get(), m_options.maximumKept) || path->dropped;
}

int CFolderSearch::Watch(int folder, std::string_view name, const PathPointer& path) {
    if (m_options.watchFault) {
        const auto use = name == kEveryName ? WatchedFor::Listing : WatchedFor::Name;
        if (const int fault = m_options.watchFault(use)) return fault;
    }
    const std::lock_guard hold(m_lock);
    if (m_hasGivenUp) return ESHUTDOWN;
    return m_watches.Add(folder, name, path);
}

/// Keeps the path for the next search, or gives the one that another thread has kept.
CFolderSearch::PathPointer CFolderSearch::Remember(const PathPointer& path) {
    CFollowersToTell tell;
    const std::lock_guard hold(m_lock);
    return Keep(path, tell);
}

CFolderSearch::PathPointer CFolderSearch::Keep(const PathPointer& path, CFollowersToTell& tell) {
    if (path->dropped) {
        // Dropped while it was followed, but perhaps concerned by more folders since.
        m_watches.RemoveAll(path);
        return path;
    }
    const auto [entry, isNew] = m_paths.try_emplace(path->path, path);
    if (!isNew) {
        Drop(path, tell);
        return entry->second;
    }
    path->lastUsed = m_newest += 2;
    m_tally.kept.fetch_add(path->Weight(), std::memory_order_relaxed);
    KeepWithinMaximum(path, tell);
    return path;
}

/// None when the path was dropped, so that nothing can be said from it.
std::optional<CFolderMatches> CFolderSearch::Answer(CSearchedPath& path, const CRequest& request,
                                                    const std::shared_ptr<CFolderFollower>& follower) const {
    if (follower) path.followers.Add(follower);
    if (path.dropped) return std::nullopt;
    const bool isFollowed = follower != nullptr;
    if (!path.listing) return CFolderMatches{{}, isFollowed};
    auto found = path.listing->Find(request.name, path.path);
    if (!found) return std::nullopt;
    return CFolderMatches{std::move(found->names), isFollowed && !found->throughLink};
}

CFolderMatches CFolderSearch::ReadAnew(const CRequest& request) {
    const CFileDescriptor folder = OpenForReading(AT_FDCWD, request.folder.c_str());
    if (!folder.IsOpen()) return {};
    m_tally.readings.fetch_add(1, std::memory_order_relaxed);
    auto read = FindByReading(folder.Get(), request.name);
    if (!read) return {};
    NoteSize(folder.Get(), read->names);
    return {std::move(read->found.names), false};
}

/// Remembers whether the folder is too large for a listing, so that it is not read in vain for one as well.
void CFolderSearch::NoteSize(int folder, std::size_t names) {
    struct stat status;
    if (::fstat(folder, &status) != 0) return;
    const std::pair which(status.st_dev, status.st_ino);
    const bool isTooLarge = names > m_options.maximumKept;
    {
        const std::shared_lock hold(m_lock);
        if (m_tooLarge.contains(which) == isTooLarge) return;
    }
    const std::lock_guard hold(m_lock);
    if (isTooLarge) {
        m_tooLarge.insert(which);
    } else {
        m_tooLarge.erase(which);
    }
}

void CFolderSearch::Forget(const PathPointer& path) {
    CFollowersToTell tell;
    const std::lock_guard hold(m_lock);
    Drop(path, tell);
}

void CFolderSearch::Drop(const PathPointer& path, CFollowersToTell& tell) {
    path->dropped = true;
    path->followers.CollectInto(tell);
    m_watches.RemoveAll(path);
    const auto remembered = m_paths.find(path->path);
    if (remembered == m_paths.end() || remembered->second != path) return;
    m_paths.erase(remembered);
    m_tally.kept.fetch_sub(path->Weight(), std::memory_order_relaxed);
}

void CFolderSearch::Drop(const SearchedPaths& paths, CFollowersToTell& tell) {
    for (const PathPointer& path : paths) Drop(path, tell);
}

/// Forgets the paths not searched for longest, an eighth more than it must, so that this is seldom done.
void CFolderSearch::KeepWithinMaximum(const PathPointer& newest, CFollowersToTell& tell) {
    if (m_tally.kept <= m_options.maximumKept) return;
    std::vector<std::pair<std::uint64_t, PathPointer>> byUse;
    byUse.reserve(m_paths.size());
    for (const auto& [name, path] : m_paths) byUse.emplace_back(path->lastUsed, path);
    std::sort(byUse.begin(), byUse.end());
    for (const auto& [lastUsed, path] : byUse) {
        if (m_tally.kept <= m_options.maximumKept - m_options.maximumKept / 8) return;
        if (path != newest) Drop(path, tell);
    }
}

void CFolderSearch::Run() {
    try {
        TakeAllChanges();
    } catch (...) {
        // The change that was being taken in is lost. What follows is the same as without notifications.
    }
    if (!m_stop->Test()) GiveUp();
}

void CFolderSearch::TakeAllChanges() {
    while (WaitForChanges()) {
        if (m_options.beforeReading) m_options.beforeReading();
        if (!TakeChanges()) return;
    }
}

/// Forgets everything and tells every follower; from here on nothing is followed.
void CFolderSearch::GiveUp() noexcept {
    const std::lock_guard hold(m_lock);
    m_hasGivenUp = true;
    for (const auto& [name, path] : m_paths) {
        path->GiveUp();
        m_tally.kept.fetch_sub(path->Weight(), std::memory_order_relaxed);
    }
    m_paths.clear();
    // Also the paths that are being followed just now.
    m_watches.GiveUpAll();
}

/// False when the thread is to end, or cannot wait.
bool CFolderSearch::WaitForChanges() const {
    std::array<pollfd, 2> entries{pollfd{m_stop->Descriptor(), POLLIN, 0},
                                  pollfd{m_watches.Descriptor(), POLLIN, 0}};
    while (::poll(entries.data(), entries.size(), -1) < 0) {
        if (errno != EINTR && errno != EAGAIN && errno != ENOMEM) return false;
    }
    return entries[0].revents == 0;
}

/// False when no changes can be read any more.
bool CFolderSearch::TakeChanges() {
    alignas(inotify_event) std::array<char, 64 * 1024> buffer;
    const auto length = ::read(m_watches.Descriptor(), buffer.data(), buffer.size());
    if (length < 0) return errno == EAGAIN || errno == EINTR;
    CFollowersToTell tell;
    for (const char *at = buffer.data(), *const end = at + length; at < end;) {
        const auto* event = reinterpret_cast<const inotify_event*>(at);
        Take(*event, tell);
        at += sizeof(inotify_event) + event->len;
    }
    if (m_tally.kept > m_options.maximumKept) {
        const std::lock_guard hold(m_lock);
        KeepWithinMaximum(nullptr, tell);
    }
    return true;
}

void CFolderSearch::Take(const inotify_event& event, CFollowersToTell& tell) {
    if (event.mask & IN_Q_OVERFLOW) {
        const std::lock_guard hold(m_lock);
        Drop(m_watches.AllConcerned(), tell);
    } else if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) {
        TakeWholeFolder(event.wd, tell);
    } else if (event.len > 0) {
        TakeName(event.wd, event.mask, event.name, tell);
    }
}

void CFolderSearch::TakeWholeFolder(int watch, CFollowersToTell& tell) {
    const std::lock_guard hold(m_lock);
    if (const CWatchedFolder* folder = m_watches.Find(watch)) Drop(m_watches.AllConcerned(*folder), tell);
}

void CFolderSearch::TakeName(int watch, std::uint32_t mask, std::string_view name, CFollowersToTell& tell) {
    // A listing can be busy with a search: while that is waited for, other searches must find their paths.
    const auto listing = ListingOf(watch);
    const bool isSure = !listing || listing->Patch(ChangeOf(mask), name);
    if (!CollectConcerned(watch, name, tell) && isSure) return;
    const std::lock_guard hold(m_lock);
    for (std::string_view which : {name, isSure ? name : kEveryName}) {
        const CWatchedFolder* folder = m_watches.Find(watch);
        if (!folder) return;
        const auto concerned = folder->concerned.find(which);
        if (concerned != folder->concerned.end()) Drop(SearchedPaths(concerned->second), tell);
    }
}

std::shared_ptr<CFolderListing> CFolderSearch::ListingOf(int watch) const {
    const std::shared_lock hold(m_lock);
    const CWatchedFolder* folder = m_watches.Find(watch);
    return folder ? folder->listing : nullptr;
}

/// Collects the followers of the folder's listing; says whether the name leads on to other paths.
bool CFolderSearch::CollectConcerned(int watch, std::string_view name, CFollowersToTell& tell) const {
    const std::shared_lock hold(m_lock);
    const CWatchedFolder* folder = m_watches.Find(watch);
    if (!folder) return false;
    if (const auto searched = folder->concerned.find(kEveryName); searched != folder->concerned.end()) {
        for (const PathPointer& path : searched->second) path->followers.CollectInto(tell);
    }
    return folder->concerned.contains(name);
}

CResult<std::shared_ptr<IFolderSearch>> CreateFolderSearch(CFolderSearchOptions options) {
    CResult<CFileDescriptor> inotify = CFolderWatches::OpenInotify();
    if (!inotify.IsOk()) return inotify.Error();
    CResult<std::shared_ptr<CEvent>> stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return stop.Error();
    try {
        return std::shared_ptr<IFolderSearch>(std::make_shared<CFolderSearch>(
            std::move(options), std::move(inotify).Value(), std::move(stop).Value()));
    } catch (const std::system_error& noThread) {
        return ErrorFromErrno(noThread.code().value());
    }
}

}  // namespace quorbel
