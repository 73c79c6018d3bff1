#include "platform/folders/SearchedPath.h"

namespace quorbel {

void CFollowers::Add(const std::shared_ptr<CFolderFollower>& follower) {
    {
        const std::shared_lock hold(m_lock);
        if (m_references.find(follower) != m_references.end()) return;
    }
    const std::lock_guard hold(m_lock);
    std::erase_if(m_references, [](const auto& reference) { return reference.expired(); });
    m_references.insert(follower);
}

void CFollowers::CollectInto(CFollowersToTell& tell) const {
    const std::shared_lock hold(m_lock);
    for (const auto& reference : m_references) {
        if (auto follower = reference.lock()) tell.Add(std::move(follower));
    }
}

void CFollowers::TellAll() const noexcept {
    const std::shared_lock hold(m_lock);
    for (const auto& reference : m_references) {
        if (const auto follower = reference.lock()) follower->Tell();
    }
}

}  // namespace quorbel
