#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Event.h"

namespace quorbel {

/// Type numbers of registry values, as .reg files write them. A value may carry any other number too.
enum class ValueType : std::uint32_t {
    None = 0,
    Text = 1,            ///< REG_SZ: UTF-16LE with terminator
    ExpandableText = 2,  ///< REG_EXPAND_SZ: UTF-16LE with terminator, holding %NAME% references
    Binary = 3,          ///< REG_BINARY
    Number32 = 4,        ///< REG_DWORD: 4 bytes, little-endian
    Number32BigEndian = 5,
    Link = 6,
    MultiText = 7,  ///< REG_MULTI_SZ: texts with a terminator each, and one more at the end
    Number64 = 11,  ///< REG_QWORD: 8 bytes, little-endian
};

/// A value's type and its raw bytes. The bytes are kept as they were written, fitting the type or not.
struct CValue {
    ValueType type = ValueType::None;
    std::string data;

    static CValue FromText(std::wstring_view text, ValueType type = ValueType::Text);
    static CValue FromTexts(const std::vector<std::wstring>& texts);
    static CValue FromNumber32(std::uint32_t number);
    static CValue FromNumber64(std::uint64_t number);

    /// The characters of a text value: the data without its last two bytes, which are taken as the
    /// terminator whatever they hold; invalid UTF-16 becomes U+FFFD.
    std::wstring AsText() const;
    /// The texts of a MultiText value, without terminators.
    std::vector<std::wstring> AsTexts() const;
    /// The number; none when the data is not of the number's size.
    std::optional<std::uint32_t> AsNumber32() const;
    std::optional<std::uint64_t> AsNumber64() const;

    bool operator==(const CValue&) const = default;
};

struct CNamedValue {
    std::wstring name;  ///< empty for the key's default value
    CValue value;
    bool operator==(const CNamedValue&) const = default;
};

enum class KeyAccess { Read, ReadWrite };

/// Which changes a watch counts, beside the deletion of the watched key itself.
enum class WatchFilter : std::uint32_t {
    Names = 1,   ///< a subkey was added or removed
    Values = 4,  ///< a value was set or deleted
    NamesAndValues = 5,
};

enum class WatchScope { Key, Subtree };

/// An open registry key. Names compare without regard to case and keep the case they were created with; a
/// path is names separated by "\" (empty segments are skipped). A name has 1 to 255 characters other than "\"
/// and control characters; a value's name has up to 16,383 characters other than control characters, data up
/// to 16 MiB; keys nest up to 512 deep. A name with another character is InvalidName, one that is too long
/// FilenameExcedsRange, too much data FileTooLarge, a key too deep BadPathname.
///
/// Every operation of a deleted key fails with KeyDeleted, also when a key of the same name exists again.
/// Writing through a key opened for reading fails with AccessDenied. Safe to use from any thread.
class IKey {
 public:
    virtual ~IKey() = default;

    /// FileNotFound when there is no such key. An empty path opens the key itself again.
    virtual CResult<std::unique_ptr<IKey>> Open(std::wstring_view path, KeyAccess access) const = 0;
    /// Opens or creates, with every missing key on the way, for reading and writing.
    virtual CResult<std::unique_ptr<IKey>> Create(std::wstring_view path) = 0;
    /// A second, independent handle with the same access.
    virtual CResult<std::unique_ptr<IKey>> Duplicate() const = 0;

    /// Names of the direct subkeys, in case-folded order, read at one moment.
    virtual CResult<std::vector<std::wstring>> Subkeys() const = 0;
    /// The key's values in case-folded order of their names, read at one moment.
    virtual CResult<std::vector<CNamedValue>> Values() const = 0;
    /// FileNotFound when there is no value of that name.
    virtual CResult<CValue> Query(std::wstring_view name) const = 0;

    virtual ErrorCode Set(std::wstring_view name, const CValue& value) = 0;
    virtual ErrorCode DeleteValue(std::wstring_view name) = 0;
    /// Removes a key below this one with everything under it. An empty path is InvalidParameter.
    virtual ErrorCode DeleteTree(std::wstring_view path) = 0;

    /// Arms a notification that sets the event once, for the first change committed after this call by any
    /// process, and is then spent. Deleting the watched key counts as a change. A later call replaces a watch
    /// that is still armed; destroying the handle disarms it without setting the event.
    virtual ErrorCode Watch(WatchScope scope, WatchFilter filter, std::shared_ptr<CEvent> event) = 0;
};

/// A transaction over the whole registry, for the calling thread, which also ends it; other threads'
/// operations wait. It ends without effect unless committed. Once an operation in it has failed for want of
/// disk space or the like, Commit returns that failure and nothing is kept.
class ITransaction {
 public:
    virtual ~ITransaction() = default;
    virtual ErrorCode Commit() = 0;
};

/// The registry: a tree of keys with typed values, shared by several processes.
class IRegistry {
 public:
    virtual ~IRegistry() = default;
    /// HKEY_LOCAL_MACHINE, open for reading and writing.
    virtual std::unique_ptr<IKey> LocalMachine() = 0;
    /// Begins a transaction; Busy when another process keeps the registry locked for more than 5 seconds,
    /// InvalidFunction when the calling thread has one already.
    virtual CResult<std::unique_ptr<ITransaction>> Begin() = 0;
    /// Begins a transaction in which everything that is read is of one moment; other processes may go on
    /// writing. Writing in it fails with AccessDenied.
    virtual CResult<std::unique_ptr<ITransaction>> BeginRead() = 0;
};

/// Replaces each %NAME% by the environment variable's value; an unknown name, like a lone percent sign, stays
/// as written.
std::wstring ExpandEnvironment(std::wstring_view text);

}  // namespace quorbel
