#pragma once

#include <gtest/gtest.h>

#include "config/RegistryKey.h"
#include "platform/registry/SqliteRegistry.h"
#include "tests/support/FaultyRegistry.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {

/// A configuration tree in a registry of its own whose operations fail on demand.
class ConfigurationTest : public testing::Test {
 protected:
    CTemporaryFolder folder;
    CFaultyRegistry registry{OpenSqliteRegistry(folder.Path()).Value()};
    CRegistryKey root{registry.LocalMachine()};

    void Create(std::wstring_view path) { ASSERT_TRUE(root.CreateKey(path).IsOk()); }
    void Set(std::wstring_view path, std::wstring_view name, const CValue& value) {
        const auto key = root.CreateKey(path);
        ASSERT_TRUE(key.IsOk());
        ASSERT_EQ(key.Value().Store().Set(name, value), ErrorCode::Success);
    }
    void Set(std::wstring_view path, std::wstring_view name, std::wstring_view text) {
        Set(path, name, CValue::FromText(text));
    }
    CRegistryKey OpenForReading(std::wstring_view path) const {
        auto key = root.OpenKey(path, KeyAccess::Read);
        EXPECT_EQ(key.Error(), ErrorCode::Success);
        return key.IsOk() ? std::move(key).Value() : CRegistryKey();
    }
};

}  // namespace quorbel
