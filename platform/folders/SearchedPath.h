#pragma once

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

#include "platform/Event.h"
#include "platform/Lock.h"
#include "platform/folders/FolderListing.h"
#include "platform/folders/FolderSearch.h"

namespace quorbel {

class CFolderFollower final : public IFolderFollower {
 public:
    explicit CFolderFollower(std::shared_ptr<CEvent> changed) noexcept : m_changed(std::move(changed)) {}
    void Tell() const noexcept { m_changed->Set(); }

 private:
    const std::shared_ptr<CEvent> m_changed;
};

/// Followers that are to be told of a change, each once. They are told when it goes out of scope, so that an
/// error on the way leaves none untold.
class CFollowersToTell {
 public:
    CFollowersToTell() = default;
    ~CFollowersToTell() {
        for (const auto& follower : m_followers) follower->Tell();
    }
    CFollowersToTell(const CFollowersToTell&) = delete;
    CFollowersToTell& operator=(const CFollowersToTell&) = delete;

    void Add(std::shared_ptr<CFolderFollower> follower) { m_followers.insert(std::move(follower)); }

 private:
    std::set<std::shared_ptr<CFolderFollower>> m_followers;
};

/// The followers of one path, none of which is kept alive. Safe to use from any thread.
class CFollowers {
 public:
    void Add(const std::shared_ptr<CFolderFollower>& follower);
    void CollectInto(CFollowersToTell& tell) const;
    /// Needs no memory.
    void TellAll() const noexcept;

 private:
    using References = std::set<std::weak_ptr<CFolderFollower>, std::owner_less<>>;

    mutable CReadWriteLock m_lock{LockRank::FolderFollowers};
    References m_references;  // guarded by m_lock
};

/// A name in a watched folder whose changes concern a path.
struct CConcern {
    int watch;
    std::string name;
};

/// The path of a folder that was searched, whether there is such a folder or not, and what is known of it.
/// Once `dropped`, it gives no answer any more: that is set before its followers are collected, and an answer
/// looks at it after its follower was added, so that one of the two notices the other.
struct CSearchedPath {
    explicit CSearchedPath(std::string name) noexcept : path(std::move(name)) {}

    std::size_t Weight() const noexcept { return CFolderSearchCounters::PathWeight(path.size()); }

    /// Drops the path and tells its followers. Needs no memory.
    void GiveUp() noexcept {
        dropped = true;
        followers.TellAll();
    }

    const std::string path;

    // Constant once the path has been followed to its end.
    dev_t device = 0;
    ino_t inode = 0;
    std::shared_ptr<CFolderListing> listing;  ///< none when there is no such folder

    CFollowers followers;
    std::atomic<bool> dropped = false;
    std::atomic<std::uint64_t> lastUsed = 0;  ///< when, counted in new paths

    // Guarded by the search object's lock.
    std::vector<CConcern> concerns;
};

}  // namespace quorbel
