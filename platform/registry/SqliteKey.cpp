#include "platform/registry/SqliteKey.h"

#include "platform/registry/Names.h"

namespace quorbel {

namespace {

/// Creates the keys that are missing below the innermost of `line`, which grows with them.
ErrorCode CreateBelow(CKeyTable& keys, CChangeJournal& journal, std::vector<KeyId>& line,
                      std::span<const std::wstring_view> names) {
    for (std::wstring_view name : names) {
        const CResult<KeyId> created = keys.Insert(line.front(), name);
        if (!created.IsOk()) return created.Error();
        const ErrorCode error = journal.Note(ChangeKind::Names, line);
        if (error != ErrorCode::Success) return error;
        line.insert(line.begin(), created.Value());
    }
    return ErrorCode::Success;
}

}  // namespace

std::unique_ptr<IKey> CSqliteKey::NewKey(std::vector<KeyId> line, KeyAccess access) const {
    return std::make_unique<CSqliteKey>(m_store, std::move(line), access);
}

ErrorCode CSqliteKey::CheckExists(CKeyTable& keys) const {
    const CResult<bool> exists = keys.Exists(Id());
    if (!exists.IsOk()) return exists.Error();
    return exists.Value() ? ErrorCode::Success : ErrorCode::KeyDeleted;
}

CResult<std::vector<KeyId>> CSqliteKey::Walk(CKeyTable& keys,
                                             std::span<const std::wstring_view> names) const {
    std::vector<KeyId> line = m_line;
    for (std::wstring_view name : names) {
        const CResult<KeyId> subkey = keys.Find(line.front(), name);
        if (!subkey.IsOk()) return subkey.Error();
        if (subkey.Value() == 0) break;
        line.insert(line.begin(), subkey.Value());
    }
    // A key found is enough of a sign that its ancestors exist.
    if (line.size() > m_line.size()) return line;
    const ErrorCode error = CheckExists(keys);
    if (error != ErrorCode::Success) return error;
    return line;
}

CResult<std::vector<KeyId>> CSqliteKey::Find(CKeyTable& keys,
                                             std::span<const std::wstring_view> names) const {
    CResult<std::vector<KeyId>> line = Walk(keys, names);
    if (line.IsOk() && line.Value().size() != m_line.size() + names.size()) return ErrorCode::FileNotFound;
    return line;
}

CResult<std::unique_ptr<IKey>> CSqliteKey::Open(std::wstring_view path, KeyAccess access) const {
    const CResult<std::vector<std::wstring_view>> names = SplitKeyPath(path);
    if (!names.IsOk()) return names.Error();
    CResult<std::vector<KeyId>> line =
        m_store->Reading([&](CKeyTable& keys) { return Find(keys, names.Value()); });
    if (!line.IsOk()) return line.Error();
    return NewKey(std::move(line).Value(), access);
}

CResult<std::unique_ptr<IKey>> CSqliteKey::Create(std::wstring_view path) {
    if (m_access == KeyAccess::Read) return ErrorCode::AccessDenied;
    // A key that exists needs no writer's turn.
    CResult<std::unique_ptr<IKey>> existing = Open(path, KeyAccess::ReadWrite);
    if (existing.Error() != ErrorCode::FileNotFound) return existing;
    const CResult<std::vector<std::wstring_view>> names = SplitKeyPath(path);
    if (!names.IsOk()) return names.Error();
    const std::size_t depth = m_line.size() - 1 + names.Value().size();
    if (depth > kDeepestKey) return ErrorCode::BadPathname;
    std::vector<KeyId> line;
    const ErrorCode error = m_store->Writing([&](CKeyTable& keys, CChangeJournal& journal) {
        CResult<std::vector<KeyId>> found = Walk(keys, names.Value());
        if (!found.IsOk()) return found.Error();
        line = std::move(found).Value();
        return CreateBelow(keys, journal, line,
                           std::span(names.Value()).subspan(line.size() - m_line.size()));
    });
    if (error != ErrorCode::Success) return error;
    return NewKey(std::move(line), KeyAccess::ReadWrite);
}

CResult<std::unique_ptr<IKey>> CSqliteKey::Duplicate() const {
    return Open({}, m_access);
}

CResult<std::vector<std::wstring>> CSqliteKey::Subkeys() const {
    return m_store->Reading([this](CKeyTable& keys) -> CResult<std::vector<std::wstring>> {
        CResult<std::vector<std::wstring>> names = keys.Subkeys(Id());
        if (!names.IsOk() || !names.Value().empty()) return names;
        const ErrorCode error = CheckExists(keys);
        if (error != ErrorCode::Success) return error;
        return names;
    });
}

CResult<std::vector<CNamedValue>> CSqliteKey::Values() const {
    return m_store->Reading([this](CKeyTable& keys) -> CResult<std::vector<CNamedValue>> {
        CResult<std::vector<CNamedValue>> values = keys.Values(Id());
        if (!values.IsOk() || !values.Value().empty()) return values;
        const ErrorCode error = CheckExists(keys);
        if (error != ErrorCode::Success) return error;
        return values;
    });
}

CResult<CValue> CSqliteKey::Query(std::wstring_view name) const {
    const ErrorCode invalid = CheckValueName(name);
    if (invalid != ErrorCode::Success) return invalid;
    return m_store->Reading([&](CKeyTable& keys) -> CResult<CValue> {
        CResult<std::optional<CValue>> value = keys.Query(Id(), name);
        if (!value.IsOk()) return value.Error();
        if (value.Value()) return *std::move(value).Value();
        const ErrorCode error = CheckExists(keys);
        return error == ErrorCode::Success ? ErrorCode::FileNotFound : error;
    });
}

ErrorCode CSqliteKey::Set(std::wstring_view name, const CValue& value) {
    if (m_access == KeyAccess::Read) return ErrorCode::AccessDenied;
    if (value.data.size() > kLargestData) return ErrorCode::FileTooLarge;
    ErrorCode error = CheckValueName(name);
    if (error != ErrorCode::Success) return error;
    return m_store->Writing([&](CKeyTable& keys, CChangeJournal& journal) {
        error = CheckExists(keys);
        if (error == ErrorCode::Success) error = keys.Set(Id(), name, value);
        if (error == ErrorCode::Success) error = journal.Note(ChangeKind::Values, m_line);
        return error;
    });
}

ErrorCode CSqliteKey::DeleteValue(std::wstring_view name) {
    if (m_access == KeyAccess::Read) return ErrorCode::AccessDenied;
    ErrorCode error = CheckValueName(name);
    if (error != ErrorCode::Success) return error;
    return m_store->Writing([&](CKeyTable& keys, CChangeJournal& journal) {
        error = CheckExists(keys);
        if (error != ErrorCode::Success) return error;
        const CResult<bool> deleted = keys.DeleteValue(Id(), name);
        if (!deleted.IsOk()) return deleted.Error();
        return deleted.Value() ? journal.Note(ChangeKind::Values, m_line) : ErrorCode::FileNotFound;
    });
}

ErrorCode CSqliteKey::DeleteTree(std::wstring_view path) {
    if (m_access == KeyAccess::Read) return ErrorCode::AccessDenied;
    const CResult<std::vector<std::wstring_view>> names = SplitKeyPath(path);
    if (!names.IsOk()) return names.Error();
    if (names.Value().empty()) return ErrorCode::InvalidParameter;
    return m_store->Writing([&](CKeyTable& keys, CChangeJournal& journal) {
        const CResult<std::vector<KeyId>> line = Find(keys, names.Value());
        if (!line.IsOk()) return line.Error();
        const CResult<std::vector<KeyId>> deleted = keys.Subtree(line.Value().front());
        if (!deleted.IsOk()) return deleted.Error();
        ErrorCode error = keys.DeleteSubtree(line.Value().front());
        if (error == ErrorCode::Success) error = journal.Note(ChangeKind::Deleted, deleted.Value());
        if (error != ErrorCode::Success) return error;
        return journal.Note(ChangeKind::Names, std::span(line.Value()).subspan(1));
    });
}

ErrorCode CSqliteKey::Watch(WatchScope scope, WatchFilter filter, std::shared_ptr<CEvent> event) {
    return m_store->Arm(this, {Id(), scope, filter, std::move(event)});
}

}  // namespace quorbel
