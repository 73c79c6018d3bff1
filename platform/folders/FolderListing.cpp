#include "platform/folders/FolderListing.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/Text.h"

namespace quorbel {

namespace {

/// Changes that may wait while a folder is read; with more it is not worth keeping.
constexpr std::size_t kMaximumPending = 100'000;

/// Names that a search matches before it lets waiting changes in.
constexpr int kSlice = 250;

NameKind KindOfMode(mode_t mode) noexcept {
    if (S_ISREG(mode)) return NameKind::Regular;
    return S_ISLNK(mode) ? NameKind::Link : NameKind::Other;
}

NameKind KindOfEntry(const dirent& entry) noexcept {
    switch (entry.d_type) {
        case DT_REG: return NameKind::Regular;
        case DT_LNK: return NameKind::Link;
        case DT_UNKNOWN: return NameKind::Unknown;
        default: return NameKind::Other;
    }
}

/// What stands in a folder under a path below it now; Unknown when there is nothing.
NameKind LookAt(int folder, const char* path) noexcept {
    struct stat status;
    if (::fstatat(folder, path, &status, AT_SYMLINK_NOFOLLOW) != 0) return NameKind::Unknown;
    return KindOfMode(status.st_mode);
}

bool LeadsToFile(int folder, const char* path) noexcept {
    struct stat status;
    return ::fstatat(folder, path, &status, 0) == 0 && S_ISREG(status.st_mode);
}

/// Whether a name stands for a regular file in the end; looks at it where its kind leaves that open, and
/// gives the kind then seen.
bool IsFile(NameKind& kind, const std::string& folder, const std::string& name) {
    if (kind == NameKind::Regular) return true;
    const std::string path = folder + '/' + name;
    if (kind == NameKind::Unknown) kind = LookAt(AT_FDCWD, path.c_str());
    if (kind == NameKind::Link) return LeadsToFile(AT_FDCWD, path.c_str());
    return kind == NameKind::Regular;
}

/// Reads from the start whatever was read from `folder` before, and leaves that descriptor alone.
std::unique_ptr<DIR, int (*)(DIR*)> OpenStream(int folder) noexcept {
    const int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* stream = own < 0 ? nullptr : ::fdopendir(own);
    if (own >= 0 && !stream) ::close(own);
    return {stream, &::closedir};
}

/// Calls `take(name, kind)` for every name that is not known to be a folder, until it returns false. False
/// when the folder could not be read to its end.
template <class Take>
bool ReadNames(int folder, Take take) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream = OpenStream(folder);
    if (!stream) return false;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(stream.get());
        if (!entry) return errno == 0;
        if (entry->d_type == DT_DIR) continue;
        const std::string_view name(entry->d_name);
        if (name == "." || name == "..") continue;
        if (!take(name, KindOfEntry(*entry))) return false;
    }
}

}  // namespace

CFolderListing::State CFolderListing::Current() const {
    const std::shared_lock hold(m_lock);
    return m_state;
}

bool CFolderListing::IsLost() const {
    return Current() == State::Lost;
}

bool CFolderListing::Fill(int folder, std::size_t maximum) {
    const std::lock_guard onlyOne(m_filling);
    if (const State state = Current(); state != State::Filling) return state == State::Filled;
    std::vector<std::pair<std::string, NameKind>> read;
    m_tally.listings.fetch_add(1, std::memory_order_relaxed);
    const bool whole = ReadNames(folder, [&](std::string_view name, NameKind kind) {
        read.emplace_back(name, kind);
        return read.size() <= maximum;
    });
    if (!whole) return false;
    std::sort(read.begin(), read.end());

    if (TakeOver(std::move(read))) return true;
    Lose();
    return false;
}

bool CFolderListing::TakeOver(std::vector<std::pair<std::string, NameKind>> read) {
    const std::lock_guard hold(m_lock);
    if (m_state != State::Filling) return false;
    for (auto& [name, kind] : read) m_names.emplace_hint(m_names.end(), std::move(name), kind);
    m_tally.kept.fetch_add(m_names.size(), std::memory_order_relaxed);
    m_state = State::Filled;
    // What is read may stand before or after a change that waits here; for each name the last change decides.
    const auto pending = std::exchange(m_pending, {});
    return std::all_of(pending.begin(), pending.end(),
                       [&](const CPendingChange& change) { return Apply(change.change, change.name); });
}

bool CFolderListing::Patch(NameChange change, std::string_view name) {
    const std::lock_guard hold(m_lock);
    switch (m_state) {
        case State::Filling:
            m_pending.push_back({change, std::string(name)});
            return m_pending.size() <= kMaximumPending;
        case State::Filled: return Apply(change, name);
        case State::Lost: return true;
    }
    return true;
}

bool CFolderListing::Apply(NameChange change, std::string_view name) {
    m_tally.patches.fetch_add(1, std::memory_order_relaxed);
    ++m_changes;
    const std::string movedInBefore = std::exchange(m_lastMovedIn, {});
    switch (change) {
        case NameChange::MovedIn:
        case NameChange::FolderMovedIn: m_lastMovedIn = name; break;
        case NameChange::MovedAway:
            // Two names that are exchanged in one call give the same notifications as one that moved in and
            // out again; after the exchange both exist.
            if (movedInBefore == name) return false;
            break;
        case NameChange::Appeared:
        case NameChange::FolderAppeared:
        case NameChange::Vanished: break;
    }
    if (change == NameChange::Appeared || change == NameChange::MovedIn) {
        Put(name);
    } else {
        Remove(name);
    }
    return true;
}

void CFolderListing::Put(std::string_view name) {
    const auto [entry, isNew] = m_names.try_emplace(std::string(name), NameKind::Unknown);
    if (isNew) {
        m_tally.kept.fetch_add(1, std::memory_order_relaxed);
    } else {
        entry->second.store(NameKind::Unknown, std::memory_order_relaxed);
    }
}

void CFolderListing::Remove(std::string_view name) {
    const auto entry = m_names.find(name);
    if (entry == m_names.end()) return;
    m_names.erase(entry);
    m_tally.kept.fetch_sub(1, std::memory_order_relaxed);
}

void CFolderListing::Lose() {
    Names names;
    {
        const std::lock_guard hold(m_lock);
        m_state = State::Lost;
        m_pending.clear();
        names.swap(m_names);
    }
    m_tally.kept.fetch_sub(names.size(), std::memory_order_relaxed);
}

std::optional<CFoundFiles> CFolderListing::Find(const CWildcardPattern& pattern,
                                                const std::string& folder) const {
    CFoundFiles found;
    std::optional<std::string> after;
    for (;;) {
        auto slice = Scan(pattern, after, CFolderMatches::kMaximum - found.names.size());
        if (!slice) return std::nullopt;
        for (CCandidate& candidate : slice->candidates) {
            if (IsFile(candidate.kind, folder, candidate.name))
                found.names.push_back(std::move(candidate.wide));
            if (candidate.kind == NameKind::Link) found.throughLink = true;
        }
        Learn(*slice);
        if (slice->isEnd || found.names.size() == CFolderMatches::kMaximum) return found;
        after = std::move(slice->last);
    }
}

/// None when the listing is not filled or lost.
std::optional<CFolderListing::CSlice> CFolderListing::Scan(const CWildcardPattern& pattern,
                                                           const std::optional<std::string>& after,
                                                           std::size_t maximum) const {
    CSlice slice;
    const std::string& prefix = pattern.Prefix();
    const std::shared_lock hold(m_lock);
    if (m_state != State::Filled) return std::nullopt;
    slice.changes = m_changes;
    auto entry = after ? m_names.upper_bound(*after) : m_names.lower_bound(prefix);
    for (int seen = 1;; ++entry, ++seen) {
        slice.isEnd = entry == m_names.end() || !entry->first.starts_with(prefix);
        if (slice.isEnd) return slice;
        const auto& [name, known] = *entry;
        if (auto wide = FromUtf8Strict(name); wide && pattern.Matches(*wide)) {
            const NameKind kind = known.load(std::memory_order_relaxed);
            if (kind != NameKind::Other)
                slice.candidates.push_back({name, std::move(*wide), kind, kind == NameKind::Unknown});
        }
        if (seen < kSlice && slice.candidates.size() < maximum) continue;
        slice.last = name;
        return slice;
    }
}

void CFolderListing::Learn(const CSlice& slice) const {
    const auto isLearnt = [](const CCandidate& candidate) { return candidate.isLearnt; };
    if (std::none_of(slice.candidates.begin(), slice.candidates.end(), isLearnt)) return;
    const std::shared_lock hold(m_lock);
    // Else what was looked at may be what stood there before the change.
    if (m_changes != slice.changes) return;
    for (const CCandidate& candidate : slice.candidates) {
        const auto entry = candidate.isLearnt ? m_names.find(candidate.name) : m_names.end();
        if (entry != m_names.end()) entry->second.store(candidate.kind, std::memory_order_relaxed);
    }
}

std::optional<CReadFiles> FindByReading(int folder, const CWildcardPattern& pattern) {
    std::set<std::wstring> first;
    std::size_t names = 0;
    const bool whole = ReadNames(folder, [&](std::string_view name, NameKind) {
        ++names;
        auto wide = name.starts_with(pattern.Prefix()) ? FromUtf8Strict(name) : std::nullopt;
        if (!wide || !pattern.Matches(*wide)) return true;
        const bool isFull = first.size() == CFolderMatches::kMaximum;
        if (isFull && *wide > *first.rbegin()) return true;
        if (!LeadsToFile(folder, std::string(name).c_str())) return true;
        if (isFull) first.erase(std::prev(first.end()));
        first.insert(std::move(*wide));
        return true;
    });
    if (!whole) return std::nullopt;
    return CReadFiles{{{first.begin(), first.end()}, false}, names};
}

}  // namespace quorbel
