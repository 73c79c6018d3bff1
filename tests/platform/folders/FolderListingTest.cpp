#include <fcntl.h>

#include "platform/FileDescriptor.h"
#include "platform/folders/FolderListing.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {

namespace {

using Names = std::vector<std::wstring>;

class FolderListing : public testing::Test {
 protected:
    FolderListing() {
        for (const char* name : {"a", "b"}) WriteFile(m_folder / name, "");
        m_open = CFileDescriptor(::open(m_folder.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    std::optional<Names> All() const {
        auto found = m_listing.Find(CWildcardPattern(L"*", {}), m_folder.Path().string());
        if (!found) return std::nullopt;
        return found->names;
    }

    CTemporaryFolder m_folder;
    CFileDescriptor m_open;
    CFolderTally m_tally;
    CFolderListing m_listing{m_tally};
};

TEST_F(FolderListing, TakesInChangesThatArriveBeforeItIsFilled) {
    EXPECT_EQ(All(), std::nullopt);
    // As if the folder had been read before "a" was removed and after "c" was.
    EXPECT_TRUE(m_listing.Patch(NameChange::Appeared, "c"));
    EXPECT_TRUE(m_listing.Patch(NameChange::Vanished, "c"));
    EXPECT_TRUE(m_listing.Patch(NameChange::Vanished, "a"));
    ASSERT_TRUE(m_listing.Fill(m_open.Get(), 100));
    EXPECT_EQ(All(), (Names{L"b"}));
    EXPECT_EQ(m_tally.kept, 1u);

    EXPECT_TRUE(m_listing.Patch(NameChange::Appeared, "a"));
    ASSERT_TRUE(m_listing.Fill(m_open.Get(), 100));
    EXPECT_EQ(All(), (Names{L"a", L"b"}));
    EXPECT_EQ(m_tally.listings, 1u);
}

TEST_F(FolderListing, DoesNotGuessWhatANameThatMovedInAndOutAgainLeaves) {
    ASSERT_TRUE(m_listing.Fill(m_open.Get(), 100));
    EXPECT_TRUE(m_listing.Patch(NameChange::MovedIn, "a"));
    EXPECT_FALSE(m_listing.Patch(NameChange::MovedAway, "a"));
}

TEST_F(FolderListing, IsLostWhenThatHappensBeforeItIsFilled) {
    EXPECT_TRUE(m_listing.Patch(NameChange::FolderMovedIn, "a"));
    EXPECT_TRUE(m_listing.Patch(NameChange::MovedAway, "a"));
    EXPECT_FALSE(m_listing.Fill(m_open.Get(), 100));
    EXPECT_TRUE(m_listing.IsLost());
    EXPECT_EQ(m_tally.kept, 0u);
}

TEST_F(FolderListing, OnceLostAnswersNothingAndHoldsNothing) {
    ASSERT_TRUE(m_listing.Fill(m_open.Get(), 100));
    m_listing.Lose();
    EXPECT_TRUE(m_listing.Patch(NameChange::Appeared, "c"));
    EXPECT_EQ(All(), std::nullopt);
    EXPECT_FALSE(m_listing.Fill(m_open.Get(), 100));
    EXPECT_EQ(m_tally.kept, 0u);
}

}  // namespace

}  // namespace quorbel
