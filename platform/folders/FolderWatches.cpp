#include "platform/folders/FolderWatches.h"

#include <cerrno>
#include <sys/inotify.h>

namespace quorbel {

namespace {

// The same for every use of a folder: adding a watch again for another use replaces the mask.
constexpr std::uint32_t kMask =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

}  // namespace

CResult<CFileDescriptor> CFolderWatches::OpenInotify() {
    CFileDescriptor inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!inotify.IsOpen()) return ErrorFromErrno(errno);
    return inotify;
}

int CFolderWatches::Add(int folder, std::string_view name, const std::shared_ptr<CSearchedPath>& path) {
    // By descriptor, so that the folder watched is the one that is read, whatever its path means by now.
    const std::string link = "/proc/self/fd/" + std::to_string(folder);
    const int watch = ::inotify_add_watch(m_inotify.Get(), link.c_str(), kMask);
    if (watch < 0) return errno;
    CWatchedFolder& watched = m_folders[watch];
    watched.concerned[std::string(name)].insert(path);
    path->concerns.push_back({watch, std::string(name)});
    if (name == kEveryName) {
        if (!watched.listing || watched.listing->IsLost())
            watched.listing = std::make_shared<CFolderListing>(m_tally);
        path->listing = watched.listing;
    }
    return 0;
}

void CFolderWatches::RemoveAll(const std::shared_ptr<CSearchedPath>& path) {
    for (const auto& [watch, name] : std::exchange(path->concerns, {})) {
        const auto found = m_folders.find(watch);
        if (found == m_folders.end()) continue;
        CWatchedFolder& folder = found->second;
        const auto concerned = folder.concerned.find(name);
        if (concerned != folder.concerned.end()) {
            concerned->second.erase(path);
            if (concerned->second.empty()) folder.concerned.erase(concerned);
        }
        if (folder.listing && !folder.concerned.contains(kEveryName)) {
            folder.listing->Lose();
            folder.listing.reset();
        }
        if (!folder.concerned.empty()) continue;
        // Fails when the folder itself is gone, and its watch with it.
        Ignore(::inotify_rm_watch(m_inotify.Get(), watch));
        m_folders.erase(found);
    }
}

void CFolderWatches::GiveUpAll() noexcept {
    for (const auto& [watch, folder] : m_folders) {
        for (const auto& [name, concerned] : folder.concerned) {
            for (const auto& path : concerned) path->GiveUp();
        }
        if (folder.listing) folder.listing->Lose();
        Ignore(::inotify_rm_watch(m_inotify.Get(), watch));
    }
    m_folders.clear();
}

const CWatchedFolder* CFolderWatches::Find(int watch) const {
    const auto found = m_folders.find(watch);
    return found == m_folders.end() ? nullptr : &found->second;
}

SearchedPaths CFolderWatches::AllConcerned(const CWatchedFolder& folder) {
    SearchedPaths paths;
    for (const auto& [name, concerned] : folder.concerned) paths.insert(concerned.begin(), concerned.end());
    return paths;
}

SearchedPaths CFolderWatches::AllConcerned() const {
    SearchedPaths paths;
    for (const auto& [watch, folder] : m_folders) paths.merge(AllConcerned(folder));
    return paths;
}

}  // namespace quorbel
