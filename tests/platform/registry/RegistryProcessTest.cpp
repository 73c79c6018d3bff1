#include "tests/platform/registry/RegistryFixture.h"
#include "tests/platform/registry/WriterProcess.h"

namespace quorbel {
namespace {

using RegistryProcessTest = RegistryTest;

TEST_F(RegistryProcessTest, ChangesOfAnotherProcessNotifyLikeOnesOwn) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    CWriterProcess writer(folder.Path());
    const struct {
        const char* order;
        WatchScope scope;
        WatchFilter filter;
        bool counts;
    } cases[] = {
        {"set W", WatchScope::Key, WatchFilter::Values, true},
        {"set W", WatchScope::Key, WatchFilter::Names, false},
        {"set W\\a", WatchScope::Key, WatchFilter::NamesAndValues, false},
        {"set W\\a", WatchScope::Subtree, WatchFilter::Values, true},
        {"create W\\b", WatchScope::Key, WatchFilter::Names, true},
        {"create W\\c", WatchScope::Key, WatchFilter::Values, false},
        {"create W\\a\\b", WatchScope::Subtree, WatchFilter::Names, true},
        {"delete W\\a\\b", WatchScope::Key, WatchFilter::NamesAndValues, false},
        {"delete W\\b", WatchScope::Key, WatchFilter::Names, true},
        {"delete W", WatchScope::Key, WatchFilter::Values, true},
    };
    Ignore(Create(*root, L"W\\a"));
    for (const auto& test : cases) {
        SCOPED_TRACE(test.order);
        const auto watched = root->Open(L"W", KeyAccess::Read).Value();
        const auto event = NewEvent();
        ASSERT_EQ(watched->Watch(test.scope, test.filter, event), ErrorCode::Success);
        ASSERT_EQ(writer.Do(test.order), 0);
        ASSERT_TRUE(WatchesCaughtUp(*root));
        EXPECT_EQ(event->Test(), test.counts);
    }
}

TEST_F(RegistryProcessTest, AnnouncedChangesArriveWithoutTheInterval) {
    const auto root = OpenRegistry()->LocalMachine();
    Ignore(Create(*root, L"W"));
    CWriterProcess writer(folder.Path());
    const auto event = CEvent::Create(EventReset::Auto).Value();
    for (int i = 0; i < 200; ++i) {
        const auto watched = root->Open(L"W", KeyAccess::Read).Value();
        ASSERT_EQ(watched->Watch(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
        writer.Order("set W");
        ASSERT_TRUE(ComesSoon(*event)) << i;
        ASSERT_EQ(writer.Result(), 0);
    }
}

TEST_F(RegistryProcessTest, WhatAKilledWriterCommittedIsNotifiedThoughItWasNeverAnnounced) {
    options.watchInterval = std::chrono::milliseconds(20);
    const auto root = OpenRegistry()->LocalMachine();
    const auto watched = Create(*root, L"W");
    const auto event = NewEvent();
    ASSERT_EQ(watched->Watch(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
    // The writer will announce its changes in another file than the one that is watched.
    std::filesystem::rename(folder / "registry.changed", folder / "registry.changed.old");
    CWriterProcess writer(folder.Path());
    EXPECT_EQ(writer.Do("set-and-die W"), -1);
    EXPECT_TRUE(ComesSoon(*event));
    EXPECT_EQ(watched->Query(L"n").Value().AsNumber32(), 1u);
    EXPECT_EQ(watched->Set(L"after", {}), ErrorCode::Success);
}

TEST_F(RegistryProcessTest, ConcurrentWritersLoseNoChangeAndAWatcherSeesTheLast) {
    constexpr std::uint32_t kTimes = 200;
    const auto root = OpenRegistry()->LocalMachine();
    CWriterProcess first(folder.Path());
    CWriterProcess second(folder.Path());
    first.Order("count " + std::to_string(kTimes));
    second.Order("count " + std::to_string(kTimes));
    const auto event = CEvent::Create(EventReset::Auto).Value();
    for (;;) {
        ASSERT_EQ(root->Watch(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
        const auto value = root->Query(L"n");
        if (value.IsOk() && value.Value().AsNumber32() == 2 * kTimes) break;
        ASSERT_TRUE(ComesSoon(*event));
    }
    EXPECT_EQ(first.Result(), 0);
    EXPECT_EQ(second.Result(), 0);
}

TEST_F(RegistryProcessTest, AFileThatCannotGrowIsAFullDiskAndKeepsWhatItHad) {
    const auto root = OpenRegistry()->LocalMachine();
    ASSERT_EQ(Create(*root, L"W")->Set(L"n", CValue::FromNumber32(7)), ErrorCode::Success);
    CWriterProcess writer(folder.Path());
    ASSERT_EQ(writer.Do("limit 262144"), 0);
    EXPECT_EQ(writer.Do("fill W"), static_cast<long>(ErrorCode::DiskFull));
    EXPECT_EQ(root->Open(L"W", KeyAccess::Read).Value()->Query(L"n").Value(), CValue::FromNumber32(7));
    EXPECT_EQ(writer.Do("set W"), 0);
    EXPECT_EQ(root->Open(L"W", KeyAccess::Read).Value()->Query(L"n").Value(), CValue::FromNumber32(1));
}

}  // namespace
}  // namespace quorbel
