#include "components/search/follow/Indexer.h"

#include <algorithm>
#include <cerrno>

#include "components/search/follow/FileStatus.h"
#include "components/search/follow/FollowedNames.h"

namespace quorbel {

namespace {

constexpr std::chrono::milliseconds kStep{100};
/// Tops that are not there are looked for so often, and every so many times folders whose changes nobody
/// tells are read.
constexpr std::chrono::milliseconds kPollInterval{2000};
constexpr int kPollsForUnwatched = 5;
/// Names that wait before no more folders are read.
constexpr std::size_t kMostFound = 200'000;

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

}  // namespace

CResult<std::unique_ptr<CIndexer>> CIndexer::Create(const std::string& indexFolder, CTextReader& texts,
                                                    IClock& clock) {
    auto writer = CIndexWriter::Open(indexFolder);
    if (!writer.IsOk()) return writer.Error();
    auto tree = CFolderTree::Create();
    if (!tree.IsOk()) return tree.Error();
    std::unique_ptr<CIndexer> indexer(
        new CIndexer(std::move(writer).Value(), std::move(tree).Value(), texts, clock));
    for (const char* own : {"/.", "/..", "/../registry", "/../keys", "/../certificates"}) {
        struct stat status {};
        if (::stat((indexFolder + own).c_str(), &status) == 0) {
            indexer->m_ownFolders.push_back(IdentityOf(status));
        }
    }
    return indexer;
}

void CIndexer::SetTops(std::vector<std::string> paths) {
    std::ranges::sort(paths);
    m_published = std::move(paths);
    ChooseTops();
}

void CIndexer::ChooseTops() {
    std::vector<std::string> tops;
    for (const std::string& path : m_published) {
        const bool isReached = std::ranges::any_of(
            tops, [&path](const std::string& top) { return path == top || IsReachedFrom(top, path); });
        if (!isReached) tops.push_back(path);
    }
    if (tops == m_tops && m_hasTops) return;
    m_hasTops = true;
    m_tops = std::move(tops);
    m_removesForeign = true;
    std::vector<CFolderNode*> gone;
    for (const auto& [path, top] : m_tree->Tops()) {
        if (!std::ranges::binary_search(m_tops, path)) gone.push_back(top.get());
    }
    const bool isReachedOtherwise = std::ranges::any_of(gone, [this](const CFolderNode* top) {
        return std::ranges::any_of(m_tops,
                                   [top](const std::string& path) { return IsBelow(top->name, path); });
    });
    if (isReachedOtherwise) return LookAtAll();
    for (CFolderNode* const top : gone) Forget(*top);
    for (const std::string& path : m_tops) {
        if (!m_tree->Tops().contains(path)) m_toRead.insert(&m_tree->AddTop(path));
    }
}

void CIndexer::LookAtAll() {
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
    return m_soon.IsEmpty() ? kPollInterval : kTimeStep;
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
    Poll();
    TakeChanges();
    if (std::exchange(m_removesForeign, false)) RemoveForeignFolders();
    TakeTexts();
    while (!m_moves.empty()) {
        const CMove move = std::move(m_moves.front());
        m_moves.pop_front();
        Apply(move);
    }
    while (m_clock.Steady() < m_stepEnd && DoOne()) {
    }
    return NoteState();
}

bool CIndexer::DoOne() {
    if (auto told = m_told.Take()) {
        Look(*told->first, told->second, Urgency::Told);
        return true;
    }
    // Folders first, so that changes in them are told; but the names of their files take memory.
    if (!m_toRead.empty() && m_found.Count() < kMostFound) {
        CFolderNode* const folder = m_toRead.extract(m_toRead.begin()).value();
        ReadFolder(*folder);
        return true;
    }
    if (auto found = m_found.Take()) {
        Look(*found->first, found->second, Urgency::Found);
        return true;
    }
    return false;
}

void CIndexer::Poll() {
    if (m_clock.Steady() - m_lastSoon >= kTimeStep) {
        m_lastSoon = m_clock.Steady();
        m_told.TakeAll(m_soon);
    }
    if (m_clock.Steady() - m_lastPoll < kPollInterval) return;
    m_lastPoll = m_clock.Steady();
    ChooseTops();
    m_told.TakeAll(m_later);
    if (++m_polls % kPollsForUnwatched == 0) m_toRead.insert(m_unwatched.begin(), m_unwatched.end());
    for (const auto& [path, top] : m_tree->Tops()) {
        struct stat status {};
        const bool isThere = ::stat(path.empty() ? "/" : path.c_str(), &status) == 0;
        // A top may be a link that was turned, a folder that was made anew, or gone with those above it.
        const bool isOther = isThere ? IdentityOf(status) != top->identity : top->id != 0;
        if (isOther) m_toRead.insert(top.get());
    }
}

void CIndexer::TakeChanges() {
    const CFolderTree::CChanges changes = m_tree->Take();
    if (changes.areLost) return LookAtAll();
    std::map<std::uint32_t, const CNameChange*> away;
    for (const CNameChange& change : changes.names) {
        if (change.cookie != 0 && change.hasMovedAway) away[change.cookie] = &change;
        if (!IsFollowedName(change.name)) continue;
        m_told.Add(*change.folder, change.name);
        const auto from = away.find(change.cookie);
        if (change.cookie == 0 || change.hasMovedAway || from == away.end()) continue;
        m_moves.push_back({from->second->folder, from->second->name, change.folder, change.name});
    }
    m_unwatched.insert(changes.unwatched.begin(), changes.unwatched.end());
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

void CIndexer::RemoveForeignFolders() {
    const auto folders = m_writer->Folders();
    if (!folders.IsOk()) return;
    for (const std::string& path : folders.Value()) {
        const bool isOurs = std::ranges::any_of(
            m_tops, [&path](const std::string& top) { return path == top || IsBelow(path, top); });
        if (!isOurs) Ignore(m_writer->RemoveFolder(path));
    }
}

void CIndexer::Forget(CFolderNode& folder) {
    m_tree->Remove(folder, [this](CFolderNode& gone) {
        m_toRead.erase(&gone);
        m_unwatched.erase(&gone);
        for (CNameQueue* const queue : {&m_told, &m_soon, &m_later, &m_found}) queue->Forget(gone);
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
    if (::lstat((move.to->Path() + "/" + move.toName).c_str(), &status) != 0) return;
    if (child != move.from->children.end()) {
        if (child->second->identity == IdentityOf(status)) MoveFolder(*child->second, *move.to, move.toName);
        return;
    }
    const auto known = m_writer->File(move.from->id, move.fromName);
    if (!known.IsOk() || !known.Value() || known.Value()->isPending || IsQueryFile(move.toName)) return;
    // Moving changes the attributes, and nothing else.
    const CDocumentStamp now = StampOf(status);
    CDocumentStamp before = now;
    before.changed = known.Value()->stamp.changed;
    const bool isSame = S_ISREG(status.st_mode) && before == known.Value()->stamp &&
                        !ProblemOfName(move.toName) &&
                        TextFormatOf(move.fromName) == TextFormatOf(move.toName);
    if (isSame) Ignore(m_writer->Move(move.from->id, move.fromName, move.to->id, move.toName, now));
}

void CIndexer::MoveFolder(CFolderNode& folder, CFolderNode& parent, const std::string& name) {
    const auto replaced = parent.children.find(name);
    const bool isReplacing = replaced != parent.children.end();
    // Where either lies in the other, more has been moved since; the names that were told lead to what is
    // there.
    for (const CFolderNode* above = &parent; above; above = above->parent) {
        if (above == &folder) return;
    }
    for (const CFolderNode* above = &folder; above && isReplacing; above = above->parent) {
        if (above == replaced->second.get()) return;
    }
    if (ProblemOfName(name)) return;
    const std::string from = folder.Path();
    const std::string to = parent.Path() + "/" + name;
    if (isReplacing) Forget(*replaced->second);
    Ignore(m_writer->MoveFolder(from, to));
    m_tree->Move(folder, parent, name);
    // Those that wait for their texts are asked for under their new names.
    const auto waiting = m_writer->PendingBelow(to);
    if (!waiting.IsOk()) return;
    for (const auto& [path, file, stamp] : waiting.Value()) {
        m_texts.Add({path, file, stamp}, CTextReader::Place::Last);
    }
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
