#include <atomic>
#include <fstream>
#include <new>
#include <set>
#include <thread>

#include "tests/platform/folders/SearchFixture.h"

namespace quorbel {

namespace {

namespace fs = std::filesystem;

/// Faults in the hand of a test; shared with the options, which are made first.
struct CFaults {
    std::atomic<int> nameWatches = 0;
    std::atomic<int> listingWatches = 0;
};

class FolderSearchFault : public CSearchFixture {
 protected:
    FolderSearchFault() : FolderSearchFault(std::make_shared<CFaults>()) {}
    explicit FolderSearchFault(std::shared_ptr<CFaults> faults)
        : CSearchFixture(CFolderSearchOptions{
              .watchFault =
                  [faults](WatchedFor use) {
                      return (use == WatchedFor::Name ? faults->nameWatches : faults->listingWatches).load();
                  }}),
          m_faults(std::move(faults)) {}

    const std::shared_ptr<CFaults> m_faults;
};

TEST_F(FolderSearchFault, WithoutAWatchLeftEveryAnswerIsReadAnewAndSaysSo) {
    WriteFile(Path("d/a"), "");
    for (std::atomic<int>* fault : {&m_faults->nameWatches, &m_faults->listingWatches}) {
        *fault = ENOSPC;
        fs::remove(Path("d/b"));
        EXPECT_EQ(Find("d/*").names, (Names{L"a"}));
        WriteFile(Path("d/b"), "");
        const CFolderMatches matches = Find("d/*");
        EXPECT_EQ(matches.names, (Names{L"a", L"b"}));
        EXPECT_FALSE(matches.followed);
        EXPECT_EQ(m_search->Counters().watches, 0u);
        EXPECT_EQ(m_search->Counters().listings, 0u);
        *fault = 0;
    }
    // Once there are watches again, the folder is followed again.
    EXPECT_TRUE(Find("d/*").followed);
    EXPECT_EQ(m_search->Counters().listings, 1u);
}

TEST_F(FolderSearchFault, AFolderReadAnewIsSearchedByTheSameRules) {
    m_faults->listingWatches = ENOSPC;
    for (int i = 99; i >= 10; --i) WriteFile(Path("d/f" + std::to_string(i)), "");
    WriteFile(Path("d/Report.GET.sql"), "");
    fs::create_directory(Path("d/f0"));
    fs::create_symlink("none", Path("d/f00"));
    const auto names = Find("d/f*").names;
    ASSERT_EQ(names.size(), CFolderMatches::kMaximum);
    EXPECT_EQ(names.front(), L"f10");
    EXPECT_EQ(names.back(), L"f25");
    EXPECT_EQ(Find("d/Report.GET.", L"SQL").names, (Names{L"Report.GET.sql"}));
    EXPECT_TRUE(Find("none/*").names.empty());
}

TEST_F(FolderSearchFault, FoldersAboveThatMayNotBeReadDoNotPreventFollowing) {
    m_faults->nameWatches = EACCES;
    WriteFile(Path("d/a"), "");
    ASSERT_TRUE(Find("d/*").followed);
    WriteFile(Path("d/b"), "");
    ASSERT_TRUE(IsTold());
    EXPECT_EQ(Find("d/*").names, (Names{L"a", L"b"}));

    // No event tells of these two, but the next search notices.
    fs::rename(Path("d"), Path("e"));
    WriteFile(Path("d/new"), "");
    EXPECT_EQ(Find("d/*").names, (Names{L"new"}));
    EXPECT_FALSE(Find("missing/*").followed);
}

TEST_F(FolderSearchFault, FoldersOfTheKernelItselfAreNotFollowed) {
    const CFolderMatches matches = m_search->Find(L"/proc/self/stat*", {}, m_follower);
    EXPECT_THAT(matches.names, testing::Contains(L"status"));
    EXPECT_FALSE(matches.followed);
}

class FolderSearchLimit : public CSearchFixture {
 protected:
    FolderSearchLimit() : CSearchFixture(CFolderSearchOptions{.maximumKept = kMaximum}) {}

    void Fill(const std::string& folder, int files) const {
        for (int i = 0; i < files; ++i) WriteFile(Path(folder + "/" + std::to_string(1000 + i)), "");
    }

    static constexpr std::size_t kMaximum = 200;
};

TEST_F(FolderSearchLimit, ForgetsThePathsNotSearchedForLongestAndTellsTheirFollowers) {
    Fill("a", 60);
    Fill("b", 60);
    Fill("c", 60);
    const auto aChanged = CEvent::Create(EventReset::Auto).Value();
    const auto bChanged = CEvent::Create(EventReset::Auto).Value();
    const auto aFollower = m_search->Follow(aChanged);
    const auto bFollower = m_search->Follow(bChanged);
    const auto find = [&](const char* below, const auto& follower) {
        return m_search->Find(FromUtf8(Path(below).string()), {}, follower);
    };
    ASSERT_TRUE(find("a/*", aFollower).followed);
    ASSERT_TRUE(find("b/*", bFollower).followed);
    ASSERT_TRUE(find("a/*", aFollower).followed);
    ASSERT_FALSE(bChanged->Test());
    ASSERT_TRUE(Find("c/*").followed);
    EXPECT_TRUE(IsSet(*bChanged));
    EXPECT_FALSE(aChanged->Test());
    EXPECT_LE(m_search->Counters().kept, kMaximum);
    EXPECT_EQ(m_search->Counters().paths, 2u);
    ASSERT_TRUE(find("a/*", aFollower).followed);
    EXPECT_EQ(m_search->Counters().listings, 3u);
}

TEST_F(FolderSearchLimit, ReadsAFolderThatAloneIsBeyondItEveryTime) {
    Fill("big", kMaximum + 1);
    for (int turn = 0; turn < 2; ++turn) {
        const CFolderMatches matches = Find("big/1200*");
        EXPECT_EQ(matches.names, (Names{L"1200"}));
        EXPECT_FALSE(matches.followed);
    }
    EXPECT_EQ(m_search->Counters().kept, 0u);
    EXPECT_EQ(m_search->Counters().watches, 0u);
    EXPECT_EQ(m_search->Counters().listings, 1u) << "read in vain";

    for (int i = 1000; i < 1100; ++i) fs::remove(Path("big/" + std::to_string(i)));
    EXPECT_TRUE(Find("big/1000*").names.empty());
    EXPECT_TRUE(Find("big/1200*").followed);
}

TEST_F(FolderSearchLimit, ForgetsAFolderThatGrowsBeyondIt) {
    Fill("d", 10);
    ASSERT_TRUE(Find("d/*").followed);
    Fill("d", kMaximum + 1);
    while (Find("d/1200").names.empty() || Find("d/*").followed) ASSERT_TRUE(IsTold());
    EXPECT_EQ(m_search->Counters().kept, 0u);
}

TEST_F(FolderSearchLimit, EndlesslyManyMissingFoldersDoNotFillTheMemory) {
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(Find("missing" + std::to_string(i) + "/*").followed);
        ASSERT_LE(m_search->Counters().kept, kMaximum);
    }
}

TEST_F(FolderSearchLimit, LongPathsWeighMoreThanShortOnes) {
    std::string deep;
    for (int i = 0; i < 15; ++i) deep += std::string(200, 'x') + '/';
    for (int i = 0; i < 100; ++i) {
        Ignore(Find("missing" + std::to_string(i) + "/" + deep + "*"));
        ASSERT_LE(m_search->Counters().paths, 1u);
    }
    // What the long ones weighed is free again.
    Ignore(Find("a/*"));
    Ignore(Find("b/*"));
    const CFolderSearchCounters counters = m_search->Counters();
    EXPECT_GE(counters.paths, 2u);
    EXPECT_LE(counters.kept, 200u);
}

/// Holds the thread of the search object back before it reads, until the gate is opened.
struct CGate {
    std::shared_ptr<CEvent> open = CEvent::Create(EventReset::Manual).Value();
    std::shared_ptr<CEvent> reached = CEvent::Create(EventReset::Manual).Value();
};

class FolderSearchOverflow : public CSearchFixture {
 protected:
    FolderSearchOverflow() : FolderSearchOverflow(std::make_shared<CGate>()) {}
    explicit FolderSearchOverflow(std::shared_ptr<CGate> gate)
        : CSearchFixture(CFolderSearchOptions{.beforeReading =
                                                  [gate] {
                                                      gate->reached->Set();
                                                      Ignore(WaitForAny({gate->open.get()}));
                                                  }}),
          m_gate(std::move(gate)) {}
    ~FolderSearchOverflow() override { m_gate->open->Set(); }

    const std::shared_ptr<CGate> m_gate;
};

TEST_F(FolderSearchOverflow, EventsThatWereLostMakeItReadEverythingAnew) {
    std::size_t queue = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queue;
    if (queue > 200'000) GTEST_SKIP() << "the queue of this machine is too long to fill";
    WriteFile(Path("busy/a"), "");
    WriteFile(Path("quiet/a"), "");
    ASSERT_TRUE(Find("busy/*").followed);
    ASSERT_TRUE(Find("quiet/*").followed);
    for (std::size_t i = 0; i <= queue / 2; ++i) {
        const auto name = Path("busy/b" + std::to_string(i % 2));
        std::ofstream{name};
        fs::remove(name);
    }
    WriteFile(Path("quiet/lost"), "");
    EXPECT_EQ(Find("quiet/*").names, (Names{L"a"})) << "the notifications were not held back";
    m_gate->open->Set();
    EXPECT_TRUE(Becomes("quiet/*", {L"a", L"lost"}));
    EXPECT_TRUE(Becomes("busy/*", {L"a"}));

    WriteFile(Path("quiet/seen"), "");
    EXPECT_TRUE(Becomes("quiet/*", {L"a", L"lost", L"seen"}));
}

TEST_F(FolderSearchOverflow, AnAnswerFromBeforeAChangeIsAlwaysFollowedByTheEvent) {
    WriteFile(Path("d/a"), "");
    ASSERT_TRUE(Find("d/*").followed);
    WriteFile(Path("d/b"), "");
    ASSERT_TRUE(IsSet(*m_gate->reached));
    // The change has happened, but the listing does not know yet: a follower that asks only now is told too.
    const auto lateChanged = CEvent::Create(EventReset::Auto).Value();
    const auto late = m_search->Follow(lateChanged);
    const std::wstring pattern = FromUtf8(Path("d/*").string());
    EXPECT_EQ(m_search->Find(pattern, {}, late).names, (Names{L"a"}));
    m_gate->open->Set();
    ASSERT_TRUE(IsSet(*lateChanged));
    EXPECT_EQ(m_search->Find(pattern, {}, late).names, (Names{L"a", L"b"}));
}

/// Its thread fails at the first notification after the memory is gone.
class FolderSearchWithoutMemory : public CSearchFixture {
 protected:
    FolderSearchWithoutMemory() : FolderSearchWithoutMemory(std::make_shared<std::atomic<bool>>(false)) {}
    explicit FolderSearchWithoutMemory(std::shared_ptr<std::atomic<bool>> isGone)
        : CSearchFixture(CFolderSearchOptions{.beforeReading =
                                                  [isGone] {
                                                      if (*isGone) throw std::bad_alloc();
                                                  }}),
          m_isGone(std::move(isGone)) {}

    const std::shared_ptr<std::atomic<bool>> m_isGone;
};

TEST_F(FolderSearchWithoutMemory, TellsEveryFollowerAndFollowsNothingAnyMore) {
    WriteFile(Path("changed/a"), "");
    WriteFile(Path("quiet/a"), "");
    const auto quietChanged = CEvent::Create(EventReset::Auto).Value();
    const auto missingChanged = CEvent::Create(EventReset::Auto).Value();
    const auto quiet = m_search->Follow(quietChanged);
    const auto missing = m_search->Follow(missingChanged);
    const auto find = [&](const char* below, const auto& follower) {
        return m_search->Find(FromUtf8(Path(below).string()), {}, follower);
    };
    ASSERT_TRUE(Find("changed/*").followed);
    ASSERT_TRUE(find("quiet/*", quiet).followed);
    ASSERT_TRUE(find("missing/*", missing).followed);

    *m_isGone = true;
    WriteFile(Path("changed/b"), "");
    for (CEvent* event : {m_changed.get(), quietChanged.get(), missingChanged.get()})
        EXPECT_TRUE(IsSet(*event));
    WriteFile(Path("quiet/b"), "");
    WriteFile(Path("missing/a"), "");
    const std::pair<std::string_view, Names> answers[] = {
        {"changed/*", {L"a", L"b"}}, {"quiet/*", {L"a", L"b"}}, {"missing/*", {L"a"}}, {"none/*", {}}};
    for (const auto& [below, names] : answers) {
        const CFolderMatches matches = Find(below);
        EXPECT_EQ(matches.names, names) << below;
        EXPECT_FALSE(matches.followed) << below;
    }
    const CFolderSearchCounters counters = m_search->Counters();
    EXPECT_EQ(counters.paths, 0u);
    EXPECT_EQ(counters.watches, 0u);
    EXPECT_EQ(counters.kept, 0u);
    EXPECT_EQ(counters.listings, 2u);
}

using FolderSearchThreads = CSearchFixture;

TEST_F(FolderSearchThreads, AfterTheEventOfTheLastChangeNoAnswerIsStale) {
    constexpr int kRounds = 300;
    WriteFile(Path("v0/always"), "");
    WriteFile(Path("v1/always"), "");
    fs::create_symlink("v0", Path("current"));
    std::atomic<bool> isDone = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> searchers;
    for (int i = 0; i < 4; ++i) {
        searchers.emplace_back([&] {
            const auto changed = CEvent::Create(EventReset::Auto).Value();
            const auto follower = m_search->Follow(changed);
            while (!isDone) {
                for (const char* below : {"current/always", "v0/always", "v1/*"}) {
                    const auto names = m_search->Find(FromUtf8(Path(below).string()), {}, follower).names;
                    if (names.empty()) ++wrong;
                }
            }
        });
    }
    for (int i = 0; i < kRounds; ++i) {
        const std::string name = "f" + std::to_string(i % 10);
        if (i / 10 % 2 == 0) {
            WriteFile(Path("v1/" + name), "");
        } else {
            fs::remove(Path("v1/" + name));
        }
        const std::string target = i % 2 == 0 ? "v1" : "v0";
        fs::create_symlink(target, Path("next"));
        fs::rename(Path("next"), Path("current"));
        if (i % 50 == 0) {
            Ignore(Find("v1/*"));
            Ignore(Find("current/*"));
        }
    }
    ASSERT_TRUE(Find("v1/*").followed);
    WriteFile(Path("v1/zLast"), "");
    ASSERT_TRUE(Becomes("v1/z*", {L"zLast"}));
    EXPECT_EQ(Find("v1/*").names, (Names{L"always", L"zLast"}));
    EXPECT_TRUE(Becomes("current/*", {L"always"}));
    isDone = true;
    for (std::thread& searcher : searchers) searcher.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace

}  // namespace quorbel
