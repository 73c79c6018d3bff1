#include "components/provider/SqlCommandCache.h"

#include <mutex>

#include "components/provider/SqlCommandParser.h"

namespace quorbel {

namespace {

constexpr std::size_t kMostEntries = 1024;
constexpr std::size_t kMostCharacters = 2 * 1024 * 1024;

}  // namespace

HRESULT CSqlCommandCache::Parse(SqlDialect dialect, std::wstring_view text,
                                std::shared_ptr<const CSqlCommand>& command) {
    command = Find({dialect, text});
    if (command) return S_OK;
    auto parsed = std::make_shared<CSqlCommand>();
    const HRESULT result = CSqlCommandParser(dialect, text).Parse(*parsed);
    if (!Succeeded(result)) return result;
    command = std::move(parsed);
    if (text.size() <= kMostCharacters / 16) Keep({dialect, std::wstring(text), command});
    return S_OK;
}

std::shared_ptr<const CSqlCommand> CSqlCommandCache::Find(const CKey& key) {
    const std::lock_guard guard(m_lock);
    const auto found = m_byText.find(key);
    if (found == m_byText.end()) return nullptr;
    m_entries.splice(m_entries.begin(), m_entries, found->second);
    return found->second->command;
}

void CSqlCommandCache::Keep(CEntry entry) {
    const std::lock_guard guard(m_lock);
    if (m_byText.contains({entry.dialect, entry.text})) return;
    m_characters += entry.text.size();
    m_entries.push_front(std::move(entry));
    const CEntry& kept = m_entries.front();
    m_byText.emplace(CKey{kept.dialect, kept.text}, m_entries.begin());
    while (m_entries.size() > kMostEntries || m_characters > kMostCharacters) {
        const CEntry& last = m_entries.back();
        m_characters -= last.text.size();
        m_byText.erase({last.dialect, last.text});
        m_entries.pop_back();
    }
}

}  // namespace quorbel
