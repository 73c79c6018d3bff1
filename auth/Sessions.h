#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "http/RequestHandler.h"

namespace quorbel {

/// The sessions of signed-in users, by token, by user and by when they were last used. Not synchronised.
class CSessions {
 public:
    using Time = std::chrono::nanoseconds;  ///< of the steady clock

    struct CSession {
        UserIdentity user;
        std::string token;
        bool isAdministrator;  ///< as it was when the session began
        Time lastUsed;
        std::uint32_t timeout;  ///< seconds without use after which it identifies nobody
    };

    /// A session that lasts for `defaultTimeout` seconds after its last use.
    explicit CSessions(std::uint32_t defaultTimeout) noexcept : m_defaultTimeout(defaultTimeout) {}

    bool Has(std::string_view token) const { return m_byToken.contains(token); }
    std::size_t Count() const noexcept { return m_byToken.size(); }
    /// Begins a session; `token` is that of no other. Sweeps out expired ones, from the oldest on.
    void Add(const UserIdentity& user, const std::string& token, bool isAdministrator, Time now);
    /// The session of the token, which is used now; null when there is none or it has expired.
    const CSession* Use(std::string_view token, Time now);
    void EraseOf(const UserIdentity& user);
    /// Erases the sessions of every user that `isGone` says so of.
    void EraseIf(const std::function<bool(const UserIdentity& user)>& isGone);

 private:
    struct CEntry;
    using Order = std::list<CEntry>;
    using ByUser = std::multimap<UserIdentity, Order::iterator>;
    struct CEntry {
        CSession session;
        Time placed;  ///< when it was put where it stands in the order
        ByUser::iterator place;
    };

    static bool HasExpired(const CSession& session, Time now) noexcept;
    ByUser::iterator Erase(ByUser::iterator place);

    const std::uint32_t m_defaultTimeout;
    Order m_order;  ///< least recently used first, to the second: moving an entry costs more than finding it
    ByUser m_byUser;
    std::unordered_map<std::string_view, Order::iterator> m_byToken;  ///< views of the sessions' own tokens
};

}  // namespace quorbel
