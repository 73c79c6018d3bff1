#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "config/AccessLevel.h"
#include "http/RequestHandler.h"
#include "platform/Lock.h"

namespace quorbel {

/// A listener's memory of who answers which request: handler, or none, by access level and routing key. It
/// holds at most kMaximum entries with keys of kMaximumCharacters together, so that a scanner does not fill
/// the memory, and drops the oldest first. Safe to use from any thread (it holds lock B).
class CRoutingCache {
 public:
    using Handler = std::shared_ptr<CHTTPServer::CRequestHandler>;
    static constexpr std::size_t kMaximum = 65536;
    static constexpr std::size_t kMaximumCharacters = 8 << 20;

    /// Counts clearings: what is found by a search that began at an earlier one may be stale.
    std::uint64_t Generation() const;
    std::optional<Handler> Find(AccessLevel level, const std::wstring& key) const;
    /// Keeps a handler found by a search that began at `generation`, unless the cache was cleared since, and
    /// returns the one to use: of two searches for one key the first wins.
    Handler Insert(AccessLevel level, const std::wstring& key, Handler handler, std::uint64_t generation);
    void Clear();

 private:
    using Entries = std::unordered_map<std::wstring, Handler>;
    struct Age {
        AccessLevel level;
        const std::wstring* key;  // of the entry itself
    };
    using Levels = std::array<Entries, std::size(kAccessLevels)>;
    void DropOldest();
    static std::size_t Index(AccessLevel level) noexcept { return static_cast<std::size_t>(level) - 1; }

    mutable CReadWriteLock m_lock{LockRank::RoutingCache};  // guards what follows
    Levels m_levels;
    std::deque<Age> m_order;       // oldest first
    std::size_t m_characters = 0;  // of all keys
    std::uint64_t m_generation = 0;
};

}  // namespace quorbel
