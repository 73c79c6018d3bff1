#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/Text.h"
#include "platform/folders/FolderSearch.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {

/// A search object over a temporary folder, and one follower.
class CSearchFixture : public testing::Test {
 protected:
    using Names = std::vector<std::wstring>;

    explicit CSearchFixture(CFolderSearchOptions options = {}) {
        auto created = CreateFolderSearch(std::move(options));
        EXPECT_TRUE(created.IsOk());
        m_search = std::move(created).Value();
        m_changed = CEvent::Create(EventReset::Auto).Value();
        m_follower = m_search->Follow(m_changed);
    }

    std::filesystem::path Path(std::string_view name) const { return m_folder / name; }

    CFolderMatches Find(std::string_view below, std::wstring_view kind = {}) const {
        return m_search->Find(FromUtf8(m_folder.Path().string() + "/" + std::string(below)), kind,
                              m_follower);
    }

    /// Whether the follower is told within a time that only a fault exceeds.
    testing::AssertionResult IsTold() const { return IsSet(*m_changed); }
    static testing::AssertionResult IsSet(CEvent& event) {
        if (WaitForAny({&event}, std::chrono::seconds(30)).IsOk()) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "nothing was told";
    }

    /// Searches until nothing is left to be told, and gives the last answer. For changes that give several
    /// notifications.
    testing::AssertionResult Becomes(std::string_view below, const Names& expected) const {
        for (;;) {
            const CFolderMatches matches = Find(below);
            if (matches.names == expected && matches.followed) return testing::AssertionSuccess();
            if (!IsTold()) {
                return testing::AssertionFailure()
                       << below << " still gives " << testing::PrintToString(matches.names);
            }
        }
    }

    CTemporaryFolder m_folder;
    std::shared_ptr<IFolderSearch> m_search;
    std::shared_ptr<CEvent> m_changed;
    std::shared_ptr<IFolderFollower> m_follower;
};

}  // namespace quorbel
