#include "components/search/follow/Indexer.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>

#include "components/search/follow/FileStatus.h"
#include "components/search/follow/FollowedNames.h"
#include "platform/Text.h"
#include "platform/folders/FolderWalk.h"

namespace quorbel {

namespace {

constexpr std::chrono::milliseconds kStep{100};
/// Tops that are not there are looked for so often, and every so many times folders whose changes nobody
/// tells are read.
constexpr std::chrono::milliseconds kPollInterval{2000};
constexpr int kPollsForUnwatched = 5;

CFolderIdentity IdentityOf(const struct stat& status) noexcept {
    return {status.st_dev, status.st_ino};
}

std::optional<struct stat> StatusAt(int folder, const std::string& name) {
    struct stat status {};
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return status;
}

std::string Describe(ErrorCode error) {
    return ToUtf8(SystemMessage(ToNumber(error)).value_or(L"unknown error"));
}

CExtractedText Problem(std::string sentence) {
    CExtractedText text;
    text.problem = std::move(sentence);
    return text;
}

bool IsBelow(const std::string& path, const std::string& top) {
    return path.size() > top.size() && path.starts_with(top) && path[top.size()] == '/';
}

/// Says whether who follows the folder `top` also follows the one at `path`.
bool IsReachedFrom(const std::string& top, const std::string& path) {
    if (!IsBelow(path, top)) return false;
    for (std::size_t at = top.size(); at != path.npos;) {
        const std::size_t end = path.find('/', at + 1);
        struct stat status {};
        const bool isFollowed = IsFollowedName(path.substr(at + 1, end - at - 1)) &&
                                ::lstat(path.substr(0, end).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        if (!isFollowed) return false;
        at = end;
    }
    return true;
}

struct CCloseFolder {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

}  // namespace

CResult<std::unique_ptr<CIndexer>> CIndexer::Create(const std::string& indexFolder, CTextReader& texts,
                                                    IClock& clock) {
    auto writer = CIndexWriter::Open(indexFolder);
    if (!writer.IsOk()) return writer.Error();
    auto tree = CFolderTree::Create();
    if (!tree.IsOk()) return tree.Error();
    std::unique_ptr<CIndexer> indexer(
        new CIndexer(std::move(writer).Value(), std::move(tree).Value(), texts, clock));
    struct stat status {};
    if (::stat((indexFolder + "/..").c_str(), &status) != 0) return ErrorFromErrno(errno);
    indexer->m_ownFolder = IdentityOf(status);
    return indexer;
}

void CIndexer::SetTops(std::vector<std::string> paths) {
    std::ranges::sort(paths);
    std::vector<std::string> tops;
    for (std::string& path : paths) {
        const bool isReached = std::ranges::any_of(
            tops, [&path](const std::string& top) { return path == top || IsReachedFrom(top, path); });
        if (!isReached) tops.push_back(std::move(path));
    }
    if (tops == m_tops) return;
    m_tops = std::move(tops);
    LookAtAll();
}

void CIndexer::LookAtAll() {
    m_told.Clear();
    m_found.Clear();
    m_moves.clear();
    std::vector<CFolderNode*> tops;
    for (const auto& [path, top] : m_tree->Tops()) tops.push_back(top.get());
    for (CFolderNode* const top : tops) Forget(*top);
    for (const std::string& path : m_tops) m_toRead.insert(&m_tree->AddTop(path));
    m_removesForeign = true;
}

ErrorCode CIndexer::Rebuild() {
    ErrorCode error = m_writer->Begin();
    if (error != ErrorCode::Success) return error;
    Ignore(m_writer->Clear());
    error = m_writer->Commit();
    m_state.clear();
    m_texts.Clear();
    LookAtAll();
    return error;
}

bool CIndexer::IsBusy() const noexcept {
    return !m_toRead.empty() || !m_told.IsEmpty() || !m_found.IsEmpty() || !m_moves.empty() ||
           m_removesForeign;
}

std::chrono::milliseconds CIndexer::UntilNextLook() const {
    return kPollInterval;
}

bool CIndexer::HasTimeLeft() const {
    return m_clock.Steady() < m_stepEnd;
}

ErrorCode CIndexer::Step() {
    ErrorCode error = m_writer->Begin();
    if (error == ErrorCode::Success) {
        error = Work();
        const ErrorCode committed = m_writer->Commit();
        if (error == ErrorCode::Success) error = committed;
    }
    // What was done in memory is not known to the index.
    if (error != ErrorCode::Success) LookAtAll();
    return error;
}

ErrorCode CIndexer::Work() {
    m_stepEnd = m_clock.Steady() + kStep;
    if (std::exchange(m_removesForeign, false)) RemoveForeignFolders();
    TakeChanges();
    TakeTexts();
    for (const CMove& move : std::exchange(m_moves, {})) Apply(move);
    while (HasTimeLeft()) {
        if (auto told = m_told.Take()) {
            Look(*told->first, told->second);
        } else if (auto found = m_found.Take()) {
            Look(*found->first, found->second);
        } else if (!m_toRead.empty()) {
            CFolderNode* const folder = m_toRead.extract(m_toRead.begin()).value();
            ReadFolder(*folder);
        } else {
            break;
        }
    }
    PollUnwatched();
    return NoteState();
}

void CIndexer::TakeChanges() {
    CFolderTree::CChanges changes = m_tree->Take();
    if (changes.areLost) {
        LookAtAll();
        if (std::exchange(m_removesForeign, false)) RemoveForeignFolders();
        return;
    }
    std::map<std::uint32_t, const CNameChange*> away;
    for (CNameChange& change : changes.names) {
        if (!IsFollowedName(change.name)) continue;
        m_told.Add(*change.folder, change.name);
        if (change.cookie == 0) continue;
        if (change.hasMovedAway) {
            away[change.cookie] = &change;
        } else if (const auto from = away.find(change.cookie); from != away.end()) {
            m_moves.push_back({from->second->folder, from->second->name, change.folder, change.name});
        }
    }
    for (CFolderNode* const folder : changes.unwatched) m_unwatched.insert(folder);
}

void CIndexer::TakeTexts() {
    for (const CTextReader::CRead& read : m_texts.Take()) {
        const auto folder = m_writer->KnownFolder(read.file.folder);
        if (!folder.IsOk() || folder.Value() == 0) continue;
        const auto known = m_writer->File(folder.Value(), read.file.name);
        if (!known.IsOk() || !known.Value() || !known.Value()->isPending) continue;
        if (known.Value()->stamp != read.file.stamp) continue;  // it is being read again
        Ignore(m_writer->Put(folder.Value(), read.file.name, read.file.stamp, read.text));
    }
}

void CIndexer::PollUnwatched() {
    if (m_clock.Steady() - m_lastPoll < kPollInterval) return;
    m_lastPoll = m_clock.Steady();
    if (++m_polls % kPollsForUnwatched == 0) m_toRead.insert(m_unwatched.begin(), m_unwatched.end());
    for (const auto& [path, top] : m_tree->Tops()) {
        struct stat status {};
        const bool isThere = ::stat(path.empty() ? "/" : path.c_str(), &status) == 0;
        // A top may be a link that was turned, or a folder that was made anew.
        if (isThere && IdentityOf(status) != top->identity) m_toRead.insert(top.get());
    }
}

void CIndexer::RemoveForeignFolders() {
    const auto folders = m_writer->Folders();
    if (!folders.IsOk()) return;
    for (const std::string& path : folders.Value()) {
        const bool isOurs = std::ranges::any_of(
            m_tops, [&path](const std::string& top) { return path == top || IsBelow(path, top); });
        if (!isOurs) Ignore(m_writer->RemoveFolder(path));
    }
}

void CIndexer::ReadFolder(CFolderNode& folder) {
    const std::string path = folder.Path();
    const int links = folder.parent ? O_NOFOLLOW : 0;
    const CFileDescriptor opened(
        ::open(path.empty() ? "/" : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | links));
    if (!opened.IsOpen()) {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR || error == ELOOP) return FolderIsGone(folder);
        Remove(folder);
        return;
    }
    struct stat status {};
    if (::fstat(opened.Get(), &status) != 0) return FolderIsGone(folder);
    if (IsMadeByKernel(opened.Get()) || IdentityOf(status) == m_ownFolder) return Remove(folder);
    const auto id = m_writer->Folder(path);
    if (!id.IsOk()) return;
    folder.id = id.Value();
    folder.identity = IdentityOf(status);
    m_unwatched.erase(&folder);
    if (!m_tree->Watch(folder, opened.Get()) || !TellsItsChanges(opened.Get())) m_unwatched.insert(&folder);
    ReadEntries(folder, opened.Get());
}

void CIndexer::FolderIsGone(CFolderNode& folder) {
    if (folder.parent) {
        m_told.Add(*folder.parent, folder.name);
        return;
    }
    // It may come back: the top stays, and is polled.
    Remove(folder);
}

void CIndexer::ReadEntries(CFolderNode& folder, int descriptor) {
    // The reading has a position of its own.
    const std::unique_ptr<DIR, CCloseFolder> entries(
        ::fdopendir(::openat(descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    auto known = m_writer->Files(folder.id);
    if (!entries || !known.IsOk()) return;
    std::set<std::string> folders;
    while (const dirent* const entry = ::readdir(entries.get())) {
        if (!IsFollowedName(entry->d_name)) continue;
        ReadEntry(folder, descriptor, entry->d_name, known.Value(), folders);
    }
    for (const auto& [name, file] : known.Value()) Ignore(m_writer->Remove(folder.id, name));
    std::vector<CFolderNode*> gone;
    for (const auto& [name, child] : folder.children) {
        if (!folders.contains(name)) gone.push_back(child.get());
    }
    for (CFolderNode* const child : gone) {
        Ignore(m_writer->RemoveFolder(child->Path()));
        Forget(*child);
    }
    // Folders that went while nobody looked; tops that lie below are reached in another way.
    for (const std::string& top : m_tops) {
        const std::size_t begin = folder.Path().size() + 1;
        if (IsBelow(top, folder.Path())) folders.insert(top.substr(begin, top.find('/', begin) - begin));
    }
    Ignore(m_writer->RemoveFoldersBut(folder.Path(), folders));
}

void CIndexer::ReadEntry(CFolderNode& folder, int descriptor, const std::string& name,
                         std::map<std::string, CKnownFile, std::less<>>& known,
                         std::set<std::string>& folders) {
    const Status status = StatusAt(descriptor, name);
    if (!status) return;
    if (S_ISDIR(status->st_mode)) {
        folders.insert(name);
        Follow(folder, name, IdentityOf(*status));
        return;
    }
    const auto found = known.find(name);
    const bool isKnown =
        found != known.end() && found->second.stamp == StampOf(*status) && !found->second.isPending;
    if (!isKnown && !IsQueryFile(name)) m_found.Add(folder, name);
    if (found != known.end() && !IsQueryFile(name)) known.erase(found);
}

void CIndexer::Follow(CFolderNode& parent, const std::string& name, const CFolderIdentity& identity) {
    const auto known = parent.children.find(name);
    if (known != parent.children.end()) {
        CFolderNode& child = *known->second;
        if (child.identity == identity) return;
        Ignore(m_writer->RemoveFolder(child.Path()));
        Forget(child);
    }
    CFolderNode& child = m_tree->AddChild(parent, name);
    child.identity = identity;
    m_toRead.insert(&child);
}

void CIndexer::Forget(CFolderNode& folder) {
    m_tree->Remove(folder, [this](CFolderNode& gone) {
        m_toRead.erase(&gone);
        m_unwatched.erase(&gone);
        m_told.Forget(gone);
        m_found.Forget(gone);
        std::erase_if(m_moves, [&gone](const CMove& move) { return move.from == &gone || move.to == &gone; });
    });
}

void CIndexer::Remove(CFolderNode& folder) {
    const std::string path = folder.Path();
    Ignore(m_writer->RemoveFolder(path));
    const bool isTop = !folder.parent;
    Forget(folder);
    if (isTop) m_tree->AddTop(path);
}

void CIndexer::Apply(const CMove& move) {
    const auto child = move.from->children.find(move.fromName);
    struct stat status {};
    if (::lstat((move.to->Path() + "/" + move.toName).c_str(), &status) != 0 || !IsFollowedName(move.toName))
        return;
    if (child != move.from->children.end()) {
        if (child->second->identity == IdentityOf(status)) MoveFolder(*child->second, *move.to, move.toName);
        return;
    }
    const auto known = m_writer->File(move.from->id, move.fromName);
    if (!known.IsOk() || !known.Value() || known.Value()->isPending || IsQueryFile(move.toName)) return;
    // Moving changes the attributes, and nothing else.
    CDocumentStamp stamp = StampOf(status);
    const CDocumentStamp now = stamp;
    stamp.changed = known.Value()->stamp.changed;
    const bool isSame = S_ISREG(status.st_mode) && stamp == known.Value()->stamp &&
                        TextFormatOf(move.fromName) == TextFormatOf(move.toName);
    if (isSame) Ignore(m_writer->Move(move.from->id, move.fromName, move.to->id, move.toName, now));
}

void CIndexer::MoveFolder(CFolderNode& folder, CFolderNode& parent, const std::string& name) {
    for (const CFolderNode* above = &parent; above; above = above->parent) {
        if (above == &folder) return;  // it has been moved once more meanwhile
    }
    const std::string from = folder.Path();
    const std::string to = parent.Path() + "/" + name;
    const auto replaced = parent.children.find(name);
    if (replaced != parent.children.end() && replaced->second.get() != &folder) Forget(*replaced->second);
    Ignore(m_writer->MoveFolder(from, to));
    m_tree->Move(folder, parent, name);
}

void CIndexer::Look(CFolderNode& folder, const std::string& name) {
    if (folder.id == 0) return;  // it has not been read, and will be
    const std::string path = folder.Path() + "/" + name;
    struct stat status {};
    const bool isThere = ::lstat(path.c_str(), &status) == 0;
    const auto child = folder.children.find(name);
    if (child != folder.children.end() && !(isThere && S_ISDIR(status.st_mode))) {
        Ignore(m_writer->RemoveFolder(path));
        Forget(*child->second);
    }
    if (isThere && S_ISDIR(status.st_mode)) {
        Ignore(m_writer->Remove(folder.id, name));
        return Follow(folder, name, IdentityOf(status));
    }
    if (!isThere || IsQueryFile(name)) {
        Ignore(m_writer->Remove(folder.id, name));
        return;
    }
    const auto known = m_writer->File(folder.id, name);
    if (!known.IsOk()) return;
    const bool isCurrent = known.Value() && known.Value()->stamp == StampOf(status);
    if (!isCurrent) return PutOrSkip(folder, name, status);
    if (known.Value()->isPending) m_texts.Add({folder.Path(), name, known.Value()->stamp});
}

void CIndexer::PutOrSkip(CFolderNode& folder, const std::string& name, const struct stat& status) {
    const CDocumentStamp stamp = StampOf(status);
    if (!FromUtf8Strict(name)) {
        Ignore(m_writer->Skip(folder.id, name, stamp, "its name is not valid UTF-8"));
    } else if (S_ISLNK(status.st_mode)) {
        Ignore(m_writer->Skip(folder.id, name, stamp, "it is a symbolic link"));
    } else if (!S_ISREG(status.st_mode)) {
        Ignore(m_writer->Skip(folder.id, name, stamp, "it is no regular file"));
    } else {
        TakeIn(folder, name, status);
    }
}

void CIndexer::TakeIn(CFolderNode& folder, const std::string& name, const struct stat& status) {
    const CDocumentStamp stamp = StampOf(status);
    const TextFormat format = TextFormatOf(name);
    const std::string path = folder.Path();
    if (format == TextFormat::None || stamp.size == 0) {
        Ignore(m_writer->Put(folder.id, name, stamp, {}));
    } else if (NeedsWorker(format)) {
        Ignore(m_writer->Put(folder.id, name, stamp, {}, CIndexWriter::TextState::Pending));
        m_texts.Add({path, name, stamp});
    } else {
        Ignore(m_writer->Put(folder.id, name, stamp, ReadText(path + "/" + name, stamp)));
    }
}

CExtractedText CIndexer::ReadText(const std::string& path, const CDocumentStamp& stamp) const {
    if (stamp.size > static_cast<std::int64_t>(kLargestTextFile)) {
        return Problem("it is larger than " + std::to_string(kLargestTextFile >> 20) + " MiB");
    }
    const auto file = OpenRegularFile(path);
    if (!file.IsOk()) return Problem("it cannot be opened: " + Describe(file.Error()));
    const auto content = ReadWhole(file.Value().Get(), kLargestTextFile);
    if (!content.IsOk()) return Problem("it cannot be read: " + Describe(content.Error()));
    return ExtractText(TextFormatOf(path), content.Value());
}

ErrorCode CIndexer::NoteState() {
    if (const int changes = m_writer->CountChanges(); changes != m_changes) {
        const ErrorCode error =
            m_writer->SetFact("changed", std::to_string(ToUnixTime(m_clock.System()).seconds));
        if (error != ErrorCode::Success) return error;
        m_changes = m_writer->CountChanges();
    }
    std::string state = IsBusy() ? "reading" : "following";
    if (!m_unwatched.empty()) state += "; " + std::to_string(m_unwatched.size()) + " folders are polled";
    if (state == m_state) return ErrorCode::Success;
    const ErrorCode error = m_writer->SetFact("state", state);
    if (error == ErrorCode::Success) m_state = std::move(state);
    return error;
}

}  // namespace quorbel
