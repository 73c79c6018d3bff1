#pragma once

#include <atomic>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Lock.h"
#include "platform/folders/FolderSearch.h"
#include "platform/folders/WildcardPattern.h"

namespace quorbel {

/// Counts shared by all listings of one search object.
struct CFolderTally {
    std::atomic<std::uint64_t> listings = 0;
    std::atomic<std::uint64_t> readings = 0;
    std::atomic<std::uint64_t> patches = 0;
    std::atomic<std::size_t> kept = 0;
};

enum class NameKind : std::uint8_t {
    Unknown,  ///< not looked at yet
    Regular,
    Link,
    Other  ///< a FIFO, a socket, a device
};

struct CFoundFiles {
    std::vector<std::wstring> names;
    bool throughLink = false;  ///< the answer depends on what a symbolic link leads to
};

/// The answer of a folder read for it alone, and how many names, of folders left out, it holds.
struct CReadFiles {
    CFoundFiles found;
    std::size_t names = 0;
};

/// What happened to a name in a folder; in file system order.
enum class NameChange {
    Appeared,  ///< created, or linked
    MovedIn,
    FolderAppeared,
    FolderMovedIn,
    Vanished,
    MovedAway
};

/// The names of all files in one folder (not of its folders), sorted. It is filled once by whoever comes
/// first, takes in changes that arrive before, during and after the filling, and ends lost: then it answers
/// nothing. Safe to use from any thread.
class CFolderListing {
 public:
    explicit CFolderListing(CFolderTally& tally) noexcept : m_tally(tally) {}

    /// Reads the folder, open for reading, unless that has been done; who comes while another thread reads
    /// waits for it. The folder's watch must have been added before. False when the folder cannot be read,
    /// holds more than `maximum` names, or the listing is lost.
    bool Fill(int folder, std::size_t maximum);

    /// False when the change leaves open what the folder now holds: the listing must then be lost.
    bool Patch(NameChange change, std::string_view name);

    void Lose();
    bool IsLost() const;

    /// The files that match, at most CFolderMatches::kMaximum; none when the listing is not filled or lost.
    /// `folder` is the folder's path, to look at names that have not been looked at yet. Changes need not
    /// wait for its end: a change that arrives meanwhile may be in the answer or not.
    std::optional<CFoundFiles> Find(const CWildcardPattern& pattern, const std::string& folder) const;

 private:
    enum class State { Filling, Filled, Lost };
    struct CPendingChange {
        NameChange change;
        std::string name;
    };
    // The kind is learnt by searches that share the lock.
    using Names = std::map<std::string, std::atomic<NameKind>, std::less<>>;
    /// A name that matches.
    struct CCandidate {
        std::string name;
        std::wstring wide;
        NameKind kind;
        bool isLearnt;  ///< the kind was unknown before
    };
    /// What a search found in one go, without letting changes in.
    struct CSlice {
        std::vector<CCandidate> candidates;
        std::string last;  ///< where the next one goes on
        bool isEnd = false;
        std::uint64_t changes = 0;  ///< m_changes then
    };

    State Current() const;
    std::optional<CSlice> Scan(const CWildcardPattern& pattern, const std::optional<std::string>& after,
                               std::size_t maximum) const;
    void Learn(const CSlice& slice) const;
    bool TakeOver(std::vector<std::pair<std::string, NameKind>> read);
    bool Apply(NameChange change, std::string_view name);
    void Put(std::string_view name);
    void Remove(std::string_view name);

    CFolderTally& m_tally;
    CMutex m_filling{LockRank::FolderFilling};

    mutable CReadWriteLock m_lock{LockRank::FolderListing};
    // Guarded by m_lock.
    State m_state = State::Filling;
    mutable Names m_names;
    std::vector<CPendingChange> m_pending;  // while filling
    std::string m_lastMovedIn;              // the name, when the last change was that it moved in
    std::uint64_t m_changes = 0;            // applied
};

/// Reads a folder, open for reading, for one answer only. None when it cannot be read.
std::optional<CReadFiles> FindByReading(int folder, const CWildcardPattern& pattern);

}  // namespace quorbel
