#include "auth/Sessions.h"

namespace quorbel {

bool CSessions::HasExpired(const CSession& session, Time now) noexcept {
    return now - session.lastUsed > std::chrono::seconds(session.timeout);
}

void CSessions::Add(const UserIdentity& user, const std::string& token, bool isAdministrator, Time now) {
    while (!m_order.empty() && HasExpired(m_order.front().session, now)) Erase(m_order.front().place);
    m_order.push_back({{user, token, isAdministrator, now, m_defaultTimeout}, now, {}});
    const auto added = std::prev(m_order.end());
    added->place = m_byUser.emplace(user, added);
    m_byToken.emplace(added->session.token, added);
}

const CSessions::CSession* CSessions::Use(std::string_view token, Time now) {
    const auto found = m_byToken.find(token);
    if (found == m_byToken.end() || HasExpired(found->second->session, now)) return nullptr;
    CEntry& entry = *found->second;
    entry.session.lastUsed = now;
    if (now - entry.placed >= std::chrono::seconds(1)) {
        entry.placed = now;
        m_order.splice(m_order.end(), m_order, found->second);
    }
    return &entry.session;
}

void CSessions::EraseOf(const UserIdentity& user) {
    auto [place, end] = m_byUser.equal_range(user);
    while (place != end) place = Erase(place);
}

void CSessions::EraseIf(const std::function<bool(const UserIdentity&)>& isGone) {
    for (auto place = m_byUser.begin(); place != m_byUser.end();) {
        const auto end = m_byUser.upper_bound(place->first);
        if (!isGone(place->first)) {
            place = end;
            continue;
        }
        while (place != end) place = Erase(place);
    }
}

CSessions::ByUser::iterator CSessions::Erase(ByUser::iterator place) {
    const Order::iterator entry = place->second;
    m_byToken.erase(entry->session.token);
    m_order.erase(entry);
    return m_byUser.erase(place);
}

}  // namespace quorbel
