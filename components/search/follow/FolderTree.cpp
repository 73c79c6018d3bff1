#include "components/search/follow/FolderTree.h"

#include <cerrno>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace quorbel {

namespace {

constexpr std::uint32_t kMask = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
constexpr std::size_t kBufferSize = 256 << 10;

}  // namespace

CFolderIdentity IdentityOf(const struct stat& status) noexcept {
    return {status.st_dev, status.st_ino};
}

std::string CFolderNode::Path() const {
    return parent ? parent->Path() + "/" + name : name;
}

CResult<std::unique_ptr<CFolderTree>> CFolderTree::Create() {
    CFileDescriptor inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!inotify.IsOpen()) return ErrorFromErrno(errno);
    return std::unique_ptr<CFolderTree>(new CFolderTree(std::move(inotify)));
}

CFolderNode& CFolderTree::AddTop(const std::string& path) {
    auto& top = m_tops[path];
    if (!top) {
        top = std::make_unique<CFolderNode>();
        top->name = path;
    }
    return *top;
}

CFolderNode& CFolderTree::AddChild(CFolderNode& parent, const std::string& name) {
    auto& child = parent.children[name];
    if (!child) {
        child = std::make_unique<CFolderNode>();
        child->name = name;
        child->parent = &parent;
    }
    return *child;
}

void CFolderTree::Move(CFolderNode& folder, CFolderNode& parent, const std::string& name) {
    auto node = folder.parent->children.extract(folder.name);
    node.key() = name;
    folder.parent = &parent;
    folder.name = name;
    parent.children.insert(std::move(node));
}

void CFolderTree::Remove(CFolderNode& folder, const std::function<void(CFolderNode&)>& onGone) {
    while (!folder.children.empty()) Remove(*folder.children.begin()->second, onGone);
    onGone(folder);
    Unwatch(folder);
    if (folder.parent) {
        folder.parent->children.erase(std::string(folder.name));
    } else {
        m_tops.erase(std::string(folder.name));
    }
}

void CFolderTree::Unwatch(CFolderNode& folder) {
    const auto found = m_watches.find(std::exchange(folder.watch, -1));
    if (found == m_watches.end()) return;
    found->second.erase(&folder);
    if (!found->second.empty()) return;
    // Fails when the folder itself is gone, and its watch with it.
    Ignore(::inotify_rm_watch(m_inotify.Get(), found->first));
    m_watches.erase(found);
}

bool CFolderTree::Watch(CFolderNode& folder, int descriptor) {
    // By descriptor, so that the folder watched is the one that is read.
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const int watch = ::inotify_add_watch(m_inotify.Get(), link.c_str(), kMask);
    if (watch == folder.watch) return watch >= 0;
    Unwatch(folder);
    if (watch < 0) return false;
    folder.watch = watch;
    m_watches[watch].insert(&folder);
    return true;
}

CFolderTree::CChanges CFolderTree::Take() {
    CChanges changes;
    alignas(inotify_event) static thread_local char buffer[kBufferSize];
    for (;;) {
        const ssize_t size = ::read(m_inotify.Get(), buffer, sizeof buffer);
        if (size <= 0) return changes;
        for (ssize_t at = 0; at < size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
            TakeEvent(event, changes);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

void CFolderTree::TakeEvent(const inotify_event& event, CChanges& changes) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        changes.areLost = true;
        return;
    }
    const auto found = m_watches.find(event.wd);
    if (found == m_watches.end()) return;
    const bool isOver = (event.mask & (IN_IGNORED | IN_UNMOUNT | IN_DELETE_SELF | IN_MOVE_SELF)) != 0;
    for (CFolderNode* const folder : found->second) {
        if (isOver) {
            changes.unwatched.push_back(folder);
        } else if (event.len != 0) {
            changes.names.push_back({folder, event.name, event.cookie, (event.mask & IN_MOVED_FROM) != 0});
        }
    }
    if ((event.mask & IN_IGNORED) == 0) return;
    for (CFolderNode* const folder : found->second) folder->watch = -1;
    m_watches.erase(found);
}

}  // namespace quorbel
