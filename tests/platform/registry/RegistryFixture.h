#pragma once

#include <gtest/gtest.h>

#include "platform/registry/SqliteRegistry.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {

/// A registry in a temporary folder. Busy comes at once, and only an announced change wakes a watch, so that
/// a test sees which way a notification came.
class RegistryTest : public testing::Test {
 protected:
    static constexpr std::chrono::milliseconds kNever{3'600'000};
    static constexpr std::chrono::seconds kSoon{30};

    CRegistryOptions options{std::chrono::milliseconds(0), kNever, std::uint64_t{1} << 30};
    CTemporaryFolder folder;

    std::shared_ptr<IRegistry> OpenRegistry() {
        auto opened = OpenSqliteRegistry(folder.Path(), options);
        EXPECT_EQ(opened.Error(), ErrorCode::Success);
        return std::move(opened).Value();
    }
    static std::unique_ptr<IKey> Create(IKey& parent, std::wstring_view path) {
        auto key = parent.Create(path);
        EXPECT_EQ(key.Error(), ErrorCode::Success);
        return std::move(key).Value();
    }
    static std::shared_ptr<CEvent> NewEvent() { return CEvent::Create(EventReset::Manual).Value(); }
    static bool ComesSoon(CEvent& event) { return WaitForAny({&event}, kSoon).IsOk(); }

    /// True once everything committed before this call has been matched with the watches of `root`'s
    /// registry: changes are matched in their order, so a change made now comes last.
    static bool WatchesCaughtUp(IKey& root) {
        auto marker = Create(root, L"Marker of the watches");
        const auto event = NewEvent();
        return marker->Watch(WatchScope::Key, WatchFilter::Values, event) == ErrorCode::Success &&
               marker->Set(L"", {}) == ErrorCode::Success && ComesSoon(*event);
    }
};

}  // namespace quorbel
