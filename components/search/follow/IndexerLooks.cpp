// What there is: folders and files are read here.

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>

#include "components/search/follow/FileStatus.h"
#include "components/search/follow/FollowedNames.h"
#include "components/search/follow/Indexer.h"
#include "components/search/text/Problems.h"
#include "platform/folders/FolderWalk.h"

namespace quorbel {

namespace {

std::optional<struct stat> StatusAt(int folder, const std::string& name) {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return status;
}

struct CCloseFolder {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

}  // namespace

void CIndexer::ReadFolder(CFolderNode& folder) {
    const std::string path = folder.Path();
    const int links = folder.parent ? O_NOFOLLOW : 0;
    const CFileDescriptor opened(
        ::open(path.empty() ? "/" : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | links));
    if (!opened.IsOpen()) return CannotRead(folder, errno);
    struct stat status {};
    if (::fstat(opened.Get(), &status) != 0) return CannotRead(folder, errno);
    const bool isOwn = std::ranges::count(m_ownFolders, IdentityOf(status)) != 0;
    if (isOwn || IsMadeByKernel(opened.Get())) return Remove(folder);
    const auto id = m_writer->Folder(path);
    if (!id.IsOk()) return;
    folder.id = id.Value();
    folder.identity = IdentityOf(status);
    m_unwatched.erase(&folder);
    const bool isWatched = m_tree->Watch(folder, opened.Get()) && TellsItsChanges(opened.Get());
    if (!isWatched) m_unwatched.insert(&folder);
    ReadEntries(folder, opened.Get());
}

void CIndexer::CannotRead(CFolderNode& folder, int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
            // A top may come back: it stays, and is polled.
            folder.parent ? m_told.Add(*folder.parent, folder.name) : Remove(folder);
            return;
        case EACCES:
        case EPERM: {
            CFolderNode* const parent = folder.parent;
            const std::string name = folder.name;
            Remove(folder);
            if (parent) Ignore(m_writer->Skip(parent->id, name, {}, "it cannot be read: access is denied"));
            return;
        }
        default:
            // What is known of it stays until it can be read.
            m_unwatched.insert(&folder);
    }
}

void CIndexer::ReadEntries(CFolderNode& folder, int descriptor) {
    // The reading has a position of its own.
    CFileDescriptor own(::openat(descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, CCloseFolder> entries(own.IsOpen() ? ::fdopendir(own.Get()) : nullptr);
    if (!entries) return CannotRead(folder, EIO);
    own.Release();
    auto known = m_writer->Files(folder.id);
    if (!known.IsOk()) return;
    std::set<std::string> folders;
    errno = 0;
    while (const dirent* const entry = ::readdir(entries.get())) {
        if (IsFollowedName(entry->d_name)) {
            ReadEntry(folder, descriptor, entry->d_name, known.Value(), folders);
        }
        errno = 0;
    }
    // What was not shown may be there all the same.
    if (errno != 0) return CannotRead(folder, EIO);
    for (const auto& [name, file] : known.Value()) Ignore(m_writer->Remove(folder.id, name));
    RemoveFoldersBut(folder, std::move(folders));
}

void CIndexer::RemoveFoldersBut(CFolderNode& folder, std::set<std::string> names) {
    const std::string path = folder.Path();
    std::vector<CFolderNode*> gone;
    for (const auto& [name, child] : folder.children) {
        if (!names.contains(name)) gone.push_back(child.get());
    }
    for (CFolderNode* const child : gone) Forget(*child);
    // Tops that lie below are reached in another way.
    for (const std::string& top : m_tops) {
        const std::size_t begin = path.size() + 1;
        if (top.size() > begin && top.starts_with(path + "/")) {
            names.insert(top.substr(begin, top.find('/', begin) - begin));
        }
    }
    Ignore(m_writer->RemoveFoldersBut(path, names));
}

void CIndexer::ReadEntry(CFolderNode& folder, int descriptor, const std::string& name,
                         std::map<std::string, CKnownFile, std::less<>>& known,
                         std::set<std::string>& folders) {
    const auto status = StatusAt(descriptor, name);
    if (!status) return;
    if (S_ISDIR(status->st_mode) && !ProblemOfName(name)) {
        folders.insert(name);
        return Follow(folder, name, IdentityOf(*status));
    }
    if (IsQueryFile(name)) return;
    const auto found = known.find(name);
    const bool isCurrent = found != known.end() && found->second.stamp == StampOf(*status);
    if (!isCurrent || found->second.isPending) m_found.Add(folder, name);
    if (found != known.end()) known.erase(found);
}

void CIndexer::Follow(CFolderNode& parent, const std::string& name, const CFolderIdentity& identity) {
    const auto known = parent.children.find(name);
    if (known != parent.children.end() && known->second->identity != identity) {
        Ignore(m_writer->RemoveFolder(known->second->Path()));
        Forget(*known->second);
    }
    CFolderNode& child = m_tree->AddChild(parent, name);
    child.identity = identity;
    if (child.id == 0) m_toRead.insert(&child);
}

void CIndexer::Look(CFolderNode& folder, const std::string& name, Urgency urgency) {
    if (folder.id == 0) return;  // it has not been read, and will be
    const std::string path = folder.Path() + "/" + name;
    struct stat status {};
    const bool isThere = ::lstat(path.c_str(), &status) == 0;
    const bool isFolder = isThere && S_ISDIR(status.st_mode) && !ProblemOfName(name);
    const auto child = folder.children.find(name);
    if (child != folder.children.end() && !isFolder) {
        Ignore(m_writer->RemoveFolder(path));
        Forget(*child->second);
    }
    if (!isThere || isFolder || IsQueryFile(name)) Ignore(m_writer->Remove(folder.id, name));
    if (isFolder) return Follow(folder, name, IdentityOf(status));
    if (!isThere || IsQueryFile(name)) return;
    if (HasJustChanged(status)) return m_soon.Add(folder, name);
    const auto known = m_writer->File(folder.id, name);
    if (!known.IsOk()) return;
    const bool isCurrent = known.Value() && known.Value()->stamp == StampOf(status);
    if (!isCurrent) return PutOrSkip(folder, name, status, urgency);
    if (known.Value()->isPending) m_texts.Add({folder.Path(), name, known.Value()->stamp}, PlaceOf(urgency));
}

bool CIndexer::HasJustChanged(const struct stat& status) const {
    // Another change within one step of the file system's clock could not be told from this one.
    constexpr std::uint64_t kUnits = std::chrono::nanoseconds(kTimeStep).count() / 100;
    const std::uint64_t changed = ToFileTime(std::chrono::nanoseconds(StampOf(status).changed));
    const std::uint64_t now = m_clock.System();
    return now >= changed && now - changed < kUnits;
}

void CIndexer::PutOrSkip(CFolderNode& folder, const std::string& name, const struct stat& status,
                         Urgency urgency) {
    const CDocumentStamp stamp = StampOf(status);
    if (const char* const problem = ProblemOfName(name)) {
        Ignore(m_writer->Skip(folder.id, name, stamp, problem));
    } else if (S_ISLNK(status.st_mode)) {
        Ignore(m_writer->Skip(folder.id, name, stamp, "it is a symbolic link"));
    } else if (!S_ISREG(status.st_mode)) {
        Ignore(m_writer->Skip(folder.id, name, stamp, "it is no regular file"));
    } else {
        TakeIn(folder, name, stamp, urgency);
    }
}

void CIndexer::TakeIn(CFolderNode& folder, const std::string& name, const CDocumentStamp& stamp,
                      Urgency urgency) {
    const TextFormat format = TextFormatOf(name);
    const std::string path = folder.Path();
    if (format == TextFormat::None || stamp.size == 0) {
        Ignore(m_writer->Put(folder.id, name, stamp, {}));
    } else if (NeedsWorker(format)) {
        Ignore(m_writer->PutPending(folder.id, name, stamp));
        m_texts.Add({path, name, stamp}, PlaceOf(urgency));
    } else if (const auto text = ReadText(path + "/" + name, stamp)) {
        Ignore(m_writer->Put(folder.id, name, stamp, *text));
    } else {
        m_later.Add(folder, name);
    }
}

std::optional<CExtractedText> CIndexer::ReadText(const std::string& path, const CDocumentStamp& stamp) const {
    const auto tooLarge = [] {
        return Problem("it is larger than " + std::to_string(kLargestTextFile >> 20) + " MiB");
    };
    if (stamp.size > static_cast<std::int64_t>(kLargestTextFile)) return tooLarge();
    const auto file = OpenUnchanged(path, stamp);
    if (!file.IsOk()) return LastingProblem(file.Error());
    const auto content = ReadWhole(file.Value().Get(), kLargestTextFile);
    if (content.Error() == ErrorCode::FileTooLarge) return tooLarge();
    if (!content.IsOk()) return LastingProblem(content.Error());
    return ExtractText(TextFormatOf(path), content.Value());
}

}  // namespace quorbel
