#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Event.h"

namespace quorbel {

/// One interested party of the folders it searched: its event is set after a name in one of them changed. Who
/// lets go of it is told nothing more.
class IFolderFollower {
 public:
    virtual ~IFolderFollower() = default;
};

struct CFolderMatches {
    std::vector<std::wstring> names;  ///< file names in ordinal order, at most kMaximum
    /// True when every change of a name that could alter this answer will set the follower's event; an answer
    /// that is not followed must not be kept.
    bool followed = false;
    static constexpr std::size_t kMaximum = 16;
};

/// What a search object has done and holds, for diagnosis and tests.
struct CFolderSearchCounters {
    std::uint64_t listings = 0;  ///< folders read into a listing
    std::uint64_t readings = 0;  ///< folders read for one answer only
    std::uint64_t patches = 0;   ///< names put into or taken out of a listing by a notification
    std::size_t paths = 0;       ///< folder paths remembered, missing ones included
    std::size_t watches = 0;     ///< folders watched, those on the way to a searched folder included
    std::size_t kept = 0;        ///< names held, each remembered path counting as PathWeight names
    /// How many names a remembered path of so many bytes counts as.
    static constexpr std::size_t PathWeight(std::size_t bytes) noexcept { return 16 + bytes / 32; }
};

/// Wildcard search for regular files. A folder is listed once and its sorted listing is then kept up to date
/// by file system notifications, so that a search costs the same in a small and in a large folder. Before the
/// event of a follower is set, the listings have taken in the change.
///
/// Every folder on the way is watched as well, through symbolic links too, for the one name that leads on: a
/// missing folder that comes into being and a link that is turned elsewhere set the event. Folders on the way
/// that may be passed but not read cannot be watched and are left out. A file system mounted over a folder on
/// the way is noticed by the next search, but sets no event.
///
/// A folder that cannot be followed (no watch left, a network file system, events lost) is listed anew at
/// every search, and its answers say so. So do answers that depend on a file that is a symbolic link: no
/// notification tells when what it leads to vanishes.
///
/// When memory runs out while notifications are taken in, or none can be waited for any more, everything is
/// forgotten, every follower is told, and from then on nothing is followed: each search reads its folder. All
/// operations are safe to use from any thread.
class IFolderSearch {
 public:
    virtual ~IFolderSearch() = default;

    virtual std::shared_ptr<IFolderFollower> Follow(std::shared_ptr<CEvent> changed) = 0;

    /// The files whose path matches `pattern`: an absolute path ("\" and "/" both separate) whose last
    /// segment may hold the wildcards "*" and "?" (one code point); case counts. With `kind`, the name must
    /// go on with that text, without regard to case, where the pattern ends, and then with anything.
    ///
    /// A last segment that holds more than 8 "*", several in a row counting as one, has no wildcards: it
    /// matches only a file of literally that name. A segment that needs more than 255 bytes matches nothing;
    /// such an answer is not followed.
    ///
    /// Links are followed; folders, FIFOs, devices and dangling links are no matches, nor are names that are
    /// not UTF-8. A missing or unreadable folder has no matches. Without a follower no answer is followed.
    virtual CFolderMatches Find(std::wstring_view pattern, std::wstring_view kind,
                                const std::shared_ptr<IFolderFollower>& follower) = 0;

    virtual CFolderSearchCounters Counters() const = 0;
};

enum class WatchedFor {
    Name,    ///< the one name that leads on to a searched folder
    Listing  ///< every name in a searched folder
};

struct CFolderSearchOptions {
    /// Names held in all listings together, and the weight of the paths remembered; beyond it the paths that
    /// were not searched for longest are forgotten. About 100 bytes each, so that the default stays near 100
    /// MB. A folder that alone holds more is listed anew at every search.
    std::size_t maximumKept = 1'000'000;
    /// Called before a watch is added: an errno value in place of 0 makes that fail (fault injection).
    std::function<int(WatchedFor)> watchFault = {};
    /// Called by the thread before it reads notifications (fault injection).
    std::function<void()> beforeReading = {};
};

/// The implementation over inotify: one instance and one thread, started here, for the process. It needs
/// /proc; without it nothing is followed. Fails when no inotify instance or no thread is left.
CResult<std::shared_ptr<IFolderSearch>> CreateFolderSearch(CFolderSearchOptions options = {});

}  // namespace quorbel
