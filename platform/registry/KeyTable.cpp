#include "platform/registry/KeyTable.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

std::string Fold(std::wstring_view name) {
    return ToUtf8(FoldCase(name));
}

CValue ReadValue(const CStatement& row, int typeColumn) {
    return {static_cast<ValueType>(row.Integer(typeColumn)), std::string(row.Bytes(typeColumn + 1))};
}

/// Reads every row with `read`, which makes a T of it.
template <class T, class Read>
CResult<std::vector<T>> ReadRows(CStatement& query, Read read) {
    std::vector<T> rows;
    for (;;) {
        const CResult<bool> more = query.Step();
        if (!more.IsOk()) return more.Error();
        if (!more.Value()) return rows;
        rows.push_back(read(query));
    }
}

}  // namespace

CResult<bool> CKeyTable::Exists(KeyId key) {
    return m_database.Use("SELECT 1 FROM keys WHERE id=?", key).Step();
}

CResult<KeyId> CKeyTable::Find(KeyId parent, std::wstring_view name) {
    return m_database.Number("SELECT id FROM keys WHERE parent=? AND folded=?", parent, Fold(name));
}

CResult<KeyId> CKeyTable::Insert(KeyId parent, std::wstring_view name) {
    return m_database.Number("INSERT INTO keys(parent, folded, name) VALUES(?,?,?) RETURNING id", parent,
                             Fold(name), ToUtf8(name));
}

CResult<std::vector<std::wstring>> CKeyTable::Subkeys(KeyId parent) {
    CStatement query = m_database.Use("SELECT name FROM keys WHERE parent=? ORDER BY folded", parent);
    return ReadRows<std::wstring>(query, [](const CStatement& row) { return row.Text(0); });
}

CResult<std::vector<KeyId>> CKeyTable::Subtree(KeyId key) {
    CStatement query = m_database.Use(
        "WITH RECURSIVE tree(id) AS (VALUES(?) UNION SELECT keys.id FROM keys JOIN tree ON "
        "keys.parent=tree.id)"
        " SELECT id FROM tree",
        key);
    return ReadRows<KeyId>(query, [](const CStatement& row) { return row.Integer(0); });
}

ErrorCode CKeyTable::DeleteSubtree(KeyId key) {
    const ErrorCode error =
        m_database
            .Use(
                "WITH RECURSIVE tree(id) AS (VALUES(?) UNION SELECT keys.id FROM keys JOIN tree ON"
                " keys.parent=tree.id) DELETE FROM entries WHERE key IN (SELECT id FROM tree)",
                key)
            .Run();
    if (error != ErrorCode::Success) return error;
    return m_database
        .Use(
            "WITH RECURSIVE tree(id) AS (VALUES(?) UNION SELECT keys.id FROM keys JOIN tree ON"
            " keys.parent=tree.id) DELETE FROM keys WHERE id IN (SELECT id FROM tree)",
            key)
        .Run();
}

CResult<std::vector<CNamedValue>> CKeyTable::Values(KeyId key) {
    CStatement query =
        m_database.Use("SELECT name, type, data FROM entries WHERE key=? ORDER BY folded", key);
    return ReadRows<CNamedValue>(query, [](const CStatement& row) {
        return CNamedValue{row.Text(0), ReadValue(row, 1)};
    });
}

CResult<std::optional<CValue>> CKeyTable::Query(KeyId key, std::wstring_view name) {
    CStatement query =
        m_database.Use("SELECT type, data FROM entries WHERE key=? AND folded=?", key, Fold(name));
    const CResult<bool> found = query.Step();
    if (!found.IsOk()) return found.Error();
    if (!found.Value()) return std::optional<CValue>();
    return std::optional(ReadValue(query, 0));
}

ErrorCode CKeyTable::Set(KeyId key, std::wstring_view name, const CValue& value) {
    return m_database
        .Use(
            "INSERT INTO entries(key, folded, name, type, data) VALUES(?,?,?,?,?)"
            " ON CONFLICT(key, folded) DO UPDATE SET type=excluded.type, data=excluded.data",
            key, Fold(name), ToUtf8(name), static_cast<std::int64_t>(value.type), CBlob{value.data})
        .Run();
}

CResult<bool> CKeyTable::DeleteValue(KeyId key, std::wstring_view name) {
    return m_database.Use("DELETE FROM entries WHERE key=? AND folded=? RETURNING 1", key, Fold(name)).Step();
}

}  // namespace quorbel
