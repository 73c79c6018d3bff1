#include <atomic>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>

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

    std::optional<Names> All() const { return Find(L"*"); }
    std::optional<Names> Find(std::wstring_view pattern) const {
        auto found = m_listing.Find(CWildcardPattern(pattern, {}), m_folder.Path().string());
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

TEST_F(FolderListing, FindsTheFirstMatchesHoweverFarApart) {
    // Folders among them, which are listed as long as nobody has looked at them.
    Names expected;
    for (int i = 1'000; i < 6'000; ++i) {
        const std::string name = std::to_string(i);
        if (i % 300 == 0) {
            std::filesystem::create_directory(m_folder / name);
        } else {
            WriteFile(m_folder / name, "");
        }
    }
    for (int i = 1'000; expected.size() < CFolderMatches::kMaximum; i += 100) {
        if (i % 300 != 0) expected.push_back(std::to_wstring(i));
    }
    ASSERT_TRUE(m_listing.Fill(m_open.Get(), 10'000));
    for (int i = 1'200; i < 6'000; i += 300)
        ASSERT_TRUE(m_listing.Patch(NameChange::Appeared, std::to_string(i)));
    EXPECT_EQ(Find(L"*00"), expected);
    EXPECT_EQ(Find(L"*00"), expected);
    EXPECT_EQ(Find(L"5?9*9"), (Names{L"5099", L"5199", L"5299", L"5399", L"5499", L"5599", L"5699", L"5799",
                                     L"5899", L"5999"}));
}

TEST_F(FolderListing, MissesNothingThatStaysWhileNamesComeAndGo) {
    for (int i = 0; i < 3'000; ++i)
        ASSERT_TRUE(m_listing.Patch(NameChange::Appeared, std::to_string(10'000 + i)));
    ASSERT_TRUE(m_listing.Fill(m_open.Get(), 10'000));
    WriteFile(m_folder / "z", "");
    ASSERT_TRUE(m_listing.Patch(NameChange::Appeared, "z"));
    std::atomic<bool> isDone = false;
    std::thread changes([&] {
        for (int i = 0; !isDone; i = (i + 1) % 3'000) {
            Ignore(m_listing.Patch(NameChange::Vanished, std::to_string(10'000 + i)));
            Ignore(m_listing.Patch(NameChange::Appeared, std::to_string(10'000 + (i + 1'500) % 3'000)));
        }
    });
    for (int i = 0; i < 50; ++i) EXPECT_EQ(Find(L"?"), (Names{L"a", L"b", L"z"}));
    isDone = true;
    changes.join();
}

TEST_F(FolderListing, LooksAgainAtANameThatChanged) {
    ASSERT_TRUE(m_listing.Fill(m_open.Get(), 100));
    ASSERT_EQ(All(), (Names{L"a", L"b"}));
    std::filesystem::remove(m_folder / "a");
    ASSERT_EQ(::mkfifo((m_folder / "a").c_str(), 0600), 0);
    ASSERT_TRUE(m_listing.Patch(NameChange::Appeared, "a"));
    EXPECT_EQ(All(), (Names{L"b"}));
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
