#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Event.h"

namespace quorbel {

/// One interested party of the folders it searched: its event is set after a name in one of them changed.
class IFolderFollower {
 public:
    virtual ~IFolderFollower() = default;
};

struct CFolderMatches {
    std::vector<std::wstring> names;  ///< file names in ordinal order, at most kMaximum
    /// True when every change that could alter this answer will set the follower's event; an answer that is not
    /// followed must not be kept.
    bool followed = false;
    static constexpr std::size_t kMaximum = 16;
};

/// Wildcard search for regular files. A folder is listed once and its sorted listing is then kept up to date by
/// file system notifications, so that a search costs the same in a small and in a large folder. Before the
/// event of a follower is set, the listings have taken in the change.
///
/// A folder that cannot be followed (no watch left, a network file system, events lost) is listed anew at every
/// search, and its answers say so. All operations are safe to use from any thread.
class IFolderSearch {
 public:
    virtual ~IFolderSearch() = default;

    virtual std::shared_ptr<IFolderFollower> Follow(std::shared_ptr<CEvent> changed) = 0;

    /// The files whose path matches `pattern`: a path ("\" and "/" both separate) whose last segment may hold
    /// the wildcards "*" and "?"; case counts as it does in the file system. With `kind`, the name must go on
    /// with that text, without regard to case, where the pattern ends, and then with anything.
    ///
    /// Links are followed; folders, FIFOs, devices and dangling links are no matches. A missing or unreadable
    /// folder has no matches.
    virtual CFolderMatches Find(std::wstring_view pattern, std::wstring_view kind,
                                const std::shared_ptr<IFolderFollower>& follower) = 0;
};

/// The implementation over inotify: one instance and one thread, started here, for the process.
CResult<std::shared_ptr<IFolderSearch>> CreateFolderSearch();

}  // namespace quorbel
