#pragma once

#include <vector>

#include "platform/registry/RegistryStore.h"

namespace quorbel {

/// A handle on a key of the SQLite registry.
class CSqliteKey final : public IKey {
 public:
    /// `line`: the key's number and its ancestors', from the inside out; keys never move.
    CSqliteKey(std::shared_ptr<CRegistryStore> store, std::vector<KeyId> line, KeyAccess access) noexcept
        : m_store(std::move(store)), m_line(std::move(line)), m_access(access) {}
    ~CSqliteKey() override { m_store->Disarm(this, Id()); }

    CResult<std::unique_ptr<IKey>> Open(std::wstring_view path, KeyAccess access) const override;
    CResult<std::unique_ptr<IKey>> Create(std::wstring_view path) override;
    CResult<std::unique_ptr<IKey>> Duplicate() const override;
    CResult<std::vector<std::wstring>> Subkeys() const override;
    CResult<std::vector<CNamedValue>> Values() const override;
    CResult<CValue> Query(std::wstring_view name) const override;
    ErrorCode Set(std::wstring_view name, const CValue& value) override;
    ErrorCode DeleteValue(std::wstring_view name) override;
    ErrorCode DeleteTree(std::wstring_view path) override;
    ErrorCode Watch(WatchScope scope, WatchFilter filter, std::shared_ptr<CEvent> event) override;

 private:
    KeyId Id() const noexcept { return m_line.front(); }
    std::unique_ptr<IKey> NewKey(std::vector<KeyId> line, KeyAccess access) const;
    /// Success, or KeyDeleted when this key is gone.
    ErrorCode CheckExists(CKeyTable& keys) const;
    /// Walks down from this key as far as the names lead; empty with an error.
    CResult<std::vector<KeyId>> Walk(CKeyTable& keys, std::span<const std::wstring_view> names) const;
    CResult<std::vector<KeyId>> Find(CKeyTable& keys, std::span<const std::wstring_view> names) const;

    const std::shared_ptr<CRegistryStore> m_store;
    const std::vector<KeyId> m_line;
    const KeyAccess m_access;
};

}  // namespace quorbel
