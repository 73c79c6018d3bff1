#include "http/RoutingCache.h"

#include <shared_mutex>

namespace quorbel {

std::uint64_t CRoutingCache::Generation() const {
    const std::shared_lock lock(m_lock);
    return m_generation;
}

std::optional<CRoutingCache::Handler> CRoutingCache::Find(AccessLevel level, const std::wstring& key) const {
    const std::shared_lock lock(m_lock);
    const Entries& entries = m_levels[Index(level)];
    const auto found = entries.find(key);
    if (found == entries.end()) return std::nullopt;
    return found->second;
}

CRoutingCache::Handler CRoutingCache::Insert(AccessLevel level, const std::wstring& key, Handler handler,
                                             std::uint64_t generation) {
    const std::lock_guard lock(m_lock);
    if (generation != m_generation) return handler;
    const auto [entry, isNew] = m_levels[Index(level)].try_emplace(key, std::move(handler));
    if (isNew) {
        m_order.push_back({level, &entry->first});
        m_characters += key.size();
        while (m_order.size() > kMaximum || (m_characters > kMaximumCharacters && m_order.size() > 1))
            DropOldest();
    }
    return entry->second;
}

void CRoutingCache::DropOldest() {
    const Age oldest = m_order.front();
    m_order.pop_front();
    m_characters -= oldest.key->size();
    Entries& entries = m_levels[Index(oldest.level)];
    entries.erase(entries.find(*oldest.key));
}

void CRoutingCache::Clear() {
    Levels dropped;  // destroyed after the lock is released
    const std::lock_guard lock(m_lock);
    m_order.clear();
    m_characters = 0;
    m_levels.swap(dropped);
    ++m_generation;
}

}  // namespace quorbel
