#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "components/search/index/IndexWriter.h"
#include "platform/FileDescriptor.h"

struct inotify_event;
struct stat;

namespace quorbel {

/// What tells folders apart, whatever their names.
struct CFolderIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const CFolderIdentity&) const = default;
};

CFolderIdentity IdentityOf(const struct stat& status) noexcept;

/// A folder that is indexed.
struct CFolderNode {
    std::string name;               ///< of a top folder its absolute path, without last "/"
    CFolderNode* parent = nullptr;  ///< null for a top folder
    std::map<std::string, std::unique_ptr<CFolderNode>, std::less<>> children;
    FolderId id = 0;           ///< 0 until it has been looked at
    CFolderIdentity identity;  ///< likewise
    int watch = -1;            ///< -1 while its changes are not told

    std::string Path() const;
};

/// Something happened to a name in a folder.
struct CNameChange {
    CFolderNode* folder;
    std::string name;
    std::uint32_t cookie = 0;   ///< the same, not 0, for both ends of a move
    bool hasMovedAway = false;  ///< of a move: it is the end from which the name went
};

/// The folders that are indexed, and the notifications of what happens in them. One thread at a time.
class CFolderTree {
 public:
    /// Fails when no inotify instance is left.
    static CResult<std::unique_ptr<CFolderTree>> Create();

    /// Readable (poll) when there is something to be taken.
    int Descriptor() const noexcept { return m_inotify.Get(); }

    const std::map<std::string, std::unique_ptr<CFolderNode>>& Tops() const noexcept { return m_tops; }
    CFolderNode& AddTop(const std::string& path);
    CFolderNode& AddChild(CFolderNode& parent, const std::string& name);
    /// Gives a folder that is no top folder another place; nothing is there.
    void Move(CFolderNode& folder, CFolderNode& parent, const std::string& name);
    /// Removes a folder and all below it, each of which is shown before it goes, those below first.
    void Remove(CFolderNode& folder, const std::function<void(CFolderNode&)>& onGone);

    /// Has the changes in an open folder told. False when they cannot be.
    bool Watch(CFolderNode& folder, int descriptor);

    /// What happened since the last time.
    struct CChanges {
        std::vector<CNameChange> names;
        std::vector<CFolderNode*> unwatched;  ///< their watch has ended
        bool areLost = false;                 ///< some: everything is to be looked at again
    };
    CChanges Take();

 private:
    explicit CFolderTree(CFileDescriptor inotify) noexcept : m_inotify(std::move(inotify)) {}
    void TakeEvent(const inotify_event& event, CChanges& changes);
    void Unwatch(CFolderNode& folder);

    const CFileDescriptor m_inotify;
    std::map<std::string, std::unique_ptr<CFolderNode>> m_tops;
    // A folder that is reached in two ways has one watch.
    std::unordered_map<int, std::set<CFolderNode*>> m_watches;
};

}  // namespace quorbel
