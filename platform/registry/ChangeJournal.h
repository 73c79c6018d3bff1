#pragma once

#include <set>
#include <span>
#include <vector>

#include "platform/registry/KeyTable.h"

namespace quorbel {

enum class ChangeKind : std::uint8_t {
    Names = 1,    ///< a subkey was added or removed
    Values = 4,   ///< a value was set or deleted
    Deleted = 8,  ///< keys were deleted
};

/// One change as the journal keeps it.
struct CChange {
    std::int64_t sequence = 0;  ///< 1 for the registry's first change; without gaps
    ChangeKind kind = ChangeKind::Names;
    /// Names, Values: the changed key and its ancestors, from the inside out. Deleted: all deleted keys.
    std::vector<KeyId> keys;
};

/// How many of the latest changes are kept.
inline constexpr std::int64_t kJournalLength = 4096;

/// The table of changes: every transaction that changes the registry also says here what it changed. Not
/// synchronised.
class CChangeJournal {
 public:
    explicit CChangeJournal(CDatabase& database) noexcept : m_database(database) {}

    /// Begins to gather what one transaction changes.
    void Start() { m_noted.clear(); }
    bool HasChanges() const noexcept { return !m_noted.empty(); }
    /// Notes a change in the transaction; the same change of the same key is noted once.
    ErrorCode Note(ChangeKind kind, std::span<const KeyId> keys);
    /// Drops what is older than the latest kJournalLength changes; the transaction's last statement.
    ErrorCode Prune();

    /// The latest change's number, 0 before the first.
    CResult<std::int64_t> Last();
    /// The changes after `sequence` that are still kept, oldest first.
    CResult<std::vector<CChange>> Since(std::int64_t sequence);

 private:
    CDatabase& m_database;
    std::set<std::pair<ChangeKind, KeyId>> m_noted;
};

}  // namespace quorbel
