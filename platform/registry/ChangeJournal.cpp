#include "platform/registry/ChangeJournal.h"

#include <cstring>

namespace quorbel {

namespace {

std::string_view ToBytes(std::span<const KeyId> keys) {
    return {reinterpret_cast<const char*>(keys.data()), keys.size_bytes()};
}

std::vector<KeyId> FromBytes(std::string_view bytes) {
    std::vector<KeyId> keys(bytes.size() / sizeof(KeyId));
    if (!keys.empty()) std::memcpy(keys.data(), bytes.data(), keys.size() * sizeof(KeyId));
    return keys;
}

}  // namespace

ErrorCode CChangeJournal::Note(ChangeKind kind, std::span<const KeyId> keys) {
    if (!m_noted.emplace(kind, keys.front()).second) return ErrorCode::Success;
    return m_database
        .Use("INSERT INTO journal(kind, keys) VALUES(?,?)", static_cast<std::int64_t>(kind),
             CBlob{ToBytes(keys)})
        .Run();
}

ErrorCode CChangeJournal::Prune() {
    return m_database
        .Use("DELETE FROM journal WHERE sequence <= (SELECT max(sequence) FROM journal) - ?", kJournalLength)
        .Run();
}

CResult<std::int64_t> CChangeJournal::Last() {
    return m_database.Number("SELECT max(sequence) FROM journal");
}

CResult<std::vector<CChange>> CChangeJournal::Since(std::int64_t sequence) {
    CStatement query = m_database.Use(
        "SELECT sequence, kind, keys FROM journal WHERE sequence > ? ORDER BY sequence", sequence);
    std::vector<CChange> changes;
    for (;;) {
        const CResult<bool> more = query.Step();
        if (!more.IsOk()) return more.Error();
        if (!more.Value()) return changes;
        changes.push_back(
            {query.Integer(0), static_cast<ChangeKind>(query.Integer(1)), FromBytes(query.Bytes(2))});
    }
}

}  // namespace quorbel
