#include "tests/platform/registry/RegistryFixture.h"

namespace quorbel {
namespace {

using RegistryWatchTest = RegistryTest;

TEST_F(RegistryWatchTest, AWatchCountsTheChangesOfItsFilterAndScopeOnly) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    using Change = std::function<ErrorCode(IKey&)>;
    const Change setOwn = [](IKey& key) { return key.Set(L"v", {}); };
    const Change deleteOwn = [](IKey& key) { return key.DeleteValue(L"old"); };
    const Change setBelow = [](IKey& key) {
        return key.Open(L"a\\b", KeyAccess::ReadWrite).Value()->Set(L"v", {});
    };
    const Change addKey = [](IKey& key) { return key.Create(L"new").Error(); };
    const Change addBelow = [](IKey& key) { return key.Create(L"a\\b\\new").Error(); };
    const Change removeKey = [](IKey& key) { return key.DeleteTree(L"a"); };
    const Change removeBelow = [](IKey& key) { return key.DeleteTree(L"a\\b"); };
    const Change openExisting = [](IKey& key) { return key.Create(L"a\\b").Error(); };
    const Change removeWatched = [&](IKey&) { return root->DeleteTree(L"Watched"); };
    const Change removeParent = [&](IKey&) { return root->DeleteTree(L"Outer"); };
    const Change setBeside = [&](IKey&) {
        return root->Open(L"Beside", KeyAccess::ReadWrite).Value()->Set(L"v", {});
    };
    const auto key = WatchScope::Key;
    const auto subtree = WatchScope::Subtree;
    const auto names = WatchFilter::Names;
    const auto values = WatchFilter::Values;
    const auto both = WatchFilter::NamesAndValues;
    const struct {
        const char* what;
        WatchScope scope;
        WatchFilter filter;
        Change change;
        bool counts;
        const wchar_t* watched = L"Watched";
    } cases[] = {
        {"own value set, values", key, values, setOwn, true},
        {"own value set, names", key, names, setOwn, false},
        {"own value set, both", key, both, setOwn, true},
        {"own value set, subtree", subtree, values, setOwn, true},
        {"own value deleted", key, values, deleteOwn, true},
        {"value below, key", key, both, setBelow, false},
        {"value below, subtree", subtree, values, setBelow, true},
        {"value below, subtree names", subtree, names, setBelow, false},
        {"subkey added", key, names, addKey, true},
        {"subkey added, values", key, values, addKey, false},
        {"subkey added below, key", key, both, addBelow, false},
        {"subkey added below, subtree", subtree, names, addBelow, true},
        {"subkey removed", key, names, removeKey, true},
        {"subkey removed, values", key, values, removeKey, false},
        {"subkey removed below, key", key, both, removeBelow, false},
        {"subkey removed below, subtree", subtree, names, removeBelow, true},
        {"existing key created", subtree, both, openExisting, false},
        {"watched key removed, names", key, names, removeWatched, true},
        {"watched key removed, values", key, values, removeWatched, true},
        {"ancestor removed", key, values, removeParent, true, L"Outer\\Middle\\Watched"},
        {"sibling changed", subtree, both, setBeside, false},
        {"parent of the changed key, key", key, both, setBeside, false, L"Watched\\a"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        Ignore(Create(*root, L"Beside"));
        const auto watched = Create(*root, test.watched);
        Ignore(Create(*watched, L"a\\b"));
        ASSERT_EQ(watched->Set(L"old", {}), ErrorCode::Success);
        const auto event = NewEvent();
        ASSERT_EQ(watched->Watch(test.scope, test.filter, event), ErrorCode::Success);
        ASSERT_EQ(test.change(*watched), ErrorCode::Success);
        ASSERT_TRUE(WatchesCaughtUp(*root));
        EXPECT_EQ(event->Test(), test.counts);
        Ignore(root->DeleteTree(L"Watched"));
    }
}

TEST_F(RegistryWatchTest, AWatchIsSpentByItsFirstChange) {
    const auto root = OpenRegistry()->LocalMachine();
    const auto event = NewEvent();
    ASSERT_EQ(root->Watch(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
    ASSERT_EQ(root->Set(L"v", {}), ErrorCode::Success);
    ASSERT_TRUE(ComesSoon(*event));
    event->Clear();
    ASSERT_EQ(root->Set(L"v", {}), ErrorCode::Success);
    ASSERT_TRUE(WatchesCaughtUp(*root));
    EXPECT_FALSE(event->Test());
}

TEST_F(RegistryWatchTest, SettingTheSameDataAgainIsAChange) {
    const auto root = OpenRegistry()->LocalMachine();
    ASSERT_EQ(root->Set(L"v", {}), ErrorCode::Success);
    const auto event = NewEvent();
    ASSERT_EQ(root->Watch(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
    ASSERT_EQ(root->Set(L"v", {}), ErrorCode::Success);
    EXPECT_TRUE(ComesSoon(*event));
}

TEST_F(RegistryWatchTest, ALaterWatchReplacesTheOneStillArmedAndAClosedHandleHasNone) {
    const auto root = OpenRegistry()->LocalMachine();
    const auto replaced = NewEvent();
    const auto closed = NewEvent();
    const auto armed = NewEvent();
    auto other = root->Duplicate().Value();
    ASSERT_EQ(other->Watch(WatchScope::Key, WatchFilter::Values, closed), ErrorCode::Success);
    ASSERT_EQ(root->Watch(WatchScope::Key, WatchFilter::Values, replaced), ErrorCode::Success);
    ASSERT_EQ(root->Watch(WatchScope::Key, WatchFilter::Values, armed), ErrorCode::Success);
    other.reset();
    ASSERT_EQ(root->Set(L"v", {}), ErrorCode::Success);
    ASSERT_TRUE(ComesSoon(*armed));
    EXPECT_FALSE(replaced->Test());
    EXPECT_FALSE(closed->Test());
}

TEST_F(RegistryWatchTest, ATransactionNotifiesWhenItCommitsAndNotWhenItDoesNot) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    const auto before = NewEvent();
    const auto inside = NewEvent();
    ASSERT_EQ(root->Watch(WatchScope::Key, WatchFilter::Values, before), ErrorCode::Success);
    {
        const auto transaction = registry->Begin();
        ASSERT_EQ(root->Set(L"v", {}), ErrorCode::Success);
    }
    ASSERT_TRUE(WatchesCaughtUp(*root));
    EXPECT_FALSE(before->Test());
    const auto other = root->Duplicate().Value();
    {
        const auto transaction = registry->Begin();
        ASSERT_EQ(root->Set(L"v", {}), ErrorCode::Success);
        ASSERT_EQ(other->Watch(WatchScope::Key, WatchFilter::Values, inside), ErrorCode::Success);
        ASSERT_EQ(transaction.Value()->Commit(), ErrorCode::Success);
    }
    EXPECT_TRUE(ComesSoon(*before));
    EXPECT_TRUE(ComesSoon(*inside)) << "what was not yet committed at the arming counts";
}

TEST_F(RegistryWatchTest, AWatcherThatLostTrackFiresEveryWatch) {
    const auto registry = OpenRegistry();
    const auto root = registry->LocalMachine();
    const auto watched = Create(*root, L"Watched");
    const auto event = NewEvent();
    ASSERT_EQ(watched->Watch(WatchScope::Key, WatchFilter::Names, event), ErrorCode::Success);
    const auto transaction = registry->Begin();
    // More changed keys than the journal keeps.
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(Create(*root, L"Other\\" + std::to_wstring(i))->Set(L"v", {}), ErrorCode::Success);
    }
    ASSERT_EQ(transaction.Value()->Commit(), ErrorCode::Success);
    EXPECT_TRUE(ComesSoon(*event));
}

TEST_F(RegistryWatchTest, WhatAWatcherReadsAfterTheEventIsAtLeastThatChange) {
    const auto registry = OpenRegistry();
    const auto writer = OpenRegistry();
    const auto root = registry->LocalMachine();
    const auto theirs = writer->LocalMachine();
    const auto event = CEvent::Create(EventReset::Auto).Value();
    for (std::uint32_t i = 1; i <= 300; ++i) {
        ASSERT_EQ(root->Watch(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
        ASSERT_EQ(theirs->Set(L"n", CValue::FromNumber32(i)), ErrorCode::Success);
        ASSERT_TRUE(ComesSoon(*event)) << i;
        ASSERT_EQ(root->Query(L"n").Value().AsNumber32(), i);
    }
}

TEST_F(RegistryWatchTest, ThreadsThatArmWriteAndCloseMissNoChange) {
    const auto registry = OpenRegistry();
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            const auto root = registry->LocalMachine();
            for (int i = 0; i < kRounds; ++i) {
                const auto event = NewEvent();
                const auto key = Create(*root, std::to_wstring(thread) + L"\\" + std::to_wstring(i));
                EXPECT_EQ(key->Watch(WatchScope::Key, WatchFilter::Values, event), ErrorCode::Success);
                EXPECT_EQ(key->Set(L"v", {}), ErrorCode::Success);
                EXPECT_TRUE(ComesSoon(*event));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace quorbel
