#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "LibService/Status.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// An open key of the configuration tree; it closes with the object. Movable, not copied: DuplicateKey gives a
/// second handle. Operations that the caller may expect to fail return the store's error number; enumerations
/// return a status whose error names the store module.
class CRegistryKey {
 public:
    using OnSubkey = std::function<CStatus(const std::wstring& name)>;
    using OnText = std::function<CStatus(const std::wstring& name, const std::wstring& text)>;
    using OnNumber32 = std::function<CStatus(const std::wstring& name, std::uint32_t number)>;
    using OnNumber64 = std::function<CStatus(const std::wstring& name, std::uint64_t number)>;

    CRegistryKey() = default;
    explicit CRegistryKey(std::unique_ptr<IKey> key) noexcept : m_key(std::move(key)) {}

    bool IsOpen() const noexcept { return m_key != nullptr; }

    CResult<CRegistryKey> OpenKey(std::wstring_view path, KeyAccess access) const;
    /// Opens or creates, for reading and writing.
    CResult<CRegistryKey> CreateKey(std::wstring_view path);
    CResult<CRegistryKey> DuplicateKey() const;

    CResult<CValue> QueryValue(std::wstring_view name) const;
    /// Calls back for each subkey until a call fails; that failure is returned.
    CStatus EnumerateSubkeys(const OnSubkey& onSubkey) const;
    /// Calls back for each value of the types that a callback is given for, until a call fails. Expandable text is
    /// delivered expanded. Values of other types, and numbers of a wrong size, are skipped.
    CStatus EnumerateValues(const OnText& onText, const OnNumber32& onNumber32,
                            const OnNumber64& onNumber64) const;

    /// Arms a one-shot notification (see IKey::Watch).
    ErrorCode WatchKey(WatchScope scope, WatchFilter filter, std::shared_ptr<CEvent> event);

    /// For components that keep a key of their own.
    IKey& Store() const noexcept { return *m_key; }

 private:
    std::unique_ptr<IKey> m_key;
};

}  // namespace quorbel
