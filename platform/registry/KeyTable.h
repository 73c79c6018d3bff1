#pragma once

#include <span>
#include <vector>

#include "platform/registry/Key.h"
#include "platform/sqlite/Database.h"

namespace quorbel {

/// A key's number, never given to another key.
using KeyId = std::int64_t;

inline constexpr KeyId kLocalMachineId = 1;

/// The keys and values in their tables. Names handed in have been checked; a missing parent or key is the
/// caller's to notice with Exists. Not synchronised; what writes belongs into a transaction.
class CKeyTable {
 public:
    explicit CKeyTable(CDatabase& database) noexcept : m_database(database) {}

    CResult<bool> Exists(KeyId key);
    /// The subkey's number, 0 when there is none.
    CResult<KeyId> Find(KeyId parent, std::wstring_view name);
    CResult<KeyId> Insert(KeyId parent, std::wstring_view name);
    CResult<std::vector<std::wstring>> Subkeys(KeyId parent);
    /// The key and all below it.
    CResult<std::vector<KeyId>> Subtree(KeyId key);
    ErrorCode DeleteSubtree(KeyId key);

    CResult<std::vector<CNamedValue>> Values(KeyId key);
    CResult<std::optional<CValue>> Query(KeyId key, std::wstring_view name);
    ErrorCode Set(KeyId key, std::wstring_view name, const CValue& value);
    /// Says whether there was one.
    CResult<bool> DeleteValue(KeyId key, std::wstring_view name);

 private:
    CDatabase& m_database;
};

}  // namespace quorbel
