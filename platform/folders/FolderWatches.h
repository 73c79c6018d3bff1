#pragma once

#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/FileDescriptor.h"
#include "platform/folders/SearchedPath.h"

struct inotify_event;

namespace quorbel {

using SearchedPaths = std::set<std::shared_ptr<CSearchedPath>>;

/// Stands for every name in a folder.
inline constexpr std::string_view kEveryName;

/// One watched folder: which paths are concerned by which of its names.
struct CWatchedFolder {
    std::map<std::string, SearchedPaths, std::less<>> concerned;
    std::shared_ptr<CFolderListing> listing;  ///< there while a path is concerned by every name
};

/// The inotify instance and the folders it watches, by watch descriptor: a folder reached through two paths
/// has one. Not safe from several threads but for Read and Descriptor.
class CFolderWatches {
 public:
    CFolderWatches(CFileDescriptor inotify, CFolderTally& tally) noexcept
        : m_inotify(std::move(inotify)), m_tally(tally) {}

    static CResult<CFileDescriptor> OpenInotify();

    /// From here on, changes of `name` in the folder (open in any way) concern the path; with kEveryName the
    /// path is given the folder's listing. Returns 0 or an errno value.
    int Add(int folder, std::string_view name, const std::shared_ptr<CSearchedPath>& path);

    /// Takes back every Add for this path. Folders that concern no path any more are watched no longer.
    void RemoveAll(const std::shared_ptr<CSearchedPath>& path);

    /// Watches nothing any more, loses every listing and gives up every path concerned. Needs no memory.
    void GiveUpAll() noexcept;

    const CWatchedFolder* Find(int watch) const;
    /// All paths that a folder concerns, by any name.
    SearchedPaths AllConcerned() const;
    static SearchedPaths AllConcerned(const CWatchedFolder& folder);

    std::size_t Count() const noexcept { return m_folders.size(); }
    int Descriptor() const noexcept { return m_inotify.Get(); }

 private:
    const CFileDescriptor m_inotify;
    CFolderTally& m_tally;
    std::unordered_map<int, CWatchedFolder> m_folders;
};

}  // namespace quorbel
