#pragma once

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "components/provider/SqlCommand.h"
#include "platform/Lock.h"
#include "platform/com/Com.h"

namespace quorbel {

/// The commands parsed last, by their texts. Safe to use from any thread.
class CSqlCommandCache {
 public:
    /// As CSqlCommandParser::Parse; failures are not kept.
    HRESULT Parse(SqlDialect dialect, std::wstring_view text, std::shared_ptr<const CSqlCommand>& command);

 private:
    struct CEntry {
        SqlDialect dialect;
        std::wstring text;
        std::shared_ptr<const CSqlCommand> command;
    };
    struct CKey {
        SqlDialect dialect;
        std::wstring_view text;  // of an entry
        bool operator==(const CKey&) const = default;
    };
    struct CHash {
        std::size_t operator()(const CKey& key) const noexcept {
            return std::hash<std::wstring_view>()(key.text) + static_cast<std::size_t>(key.dialect);
        }
    };
    std::shared_ptr<const CSqlCommand> Find(const CKey& key);
    void Keep(CEntry entry);

    CMutex m_lock{LockRank::Innermost};  // guards:
    std::list<CEntry> m_entries;         // the one used last in front
    std::unordered_map<CKey, std::list<CEntry>::iterator, CHash> m_byText;
    std::size_t m_characters = 0;  // of all texts
};

}  // namespace quorbel
