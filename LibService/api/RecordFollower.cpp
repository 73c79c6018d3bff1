#include "LibService/api/RecordFollower.h"

#include <algorithm>

namespace quorbel {

namespace {

constexpr std::chrono::milliseconds kNoWait{0};
constexpr std::chrono::milliseconds kWait{60'000};

}  // namespace

ErrorCode CRecordFollower::AddName(CNamedRecord& record) {
    auto name = m_names.find(record.record.object);
    if (name == m_names.end()) {
        const auto asked = m_client.ObjectName(record.record.object, m_stop);
        if (!asked.IsOk() && asked.Error() != ErrorCode::NotFound) return asked.Error();
        name = m_names.emplace(record.record.object, asked.IsOk() ? asked.Value() : "?").first;
    }
    record.object = name->second;
    return ErrorCode::Success;
}

ErrorCode CRecordFollower::Follow(std::uint64_t count, const Show& show) {
    const auto now = m_client.ReadRecords(~std::uint64_t{0}, kNoWait, m_stop);
    if (!now.IsOk()) return now.Error();
    std::uint64_t first = now.Value().next - std::min(now.Value().next, count);
    for (;;) {
        const auto read = m_client.ReadRecords(first, kWait, m_stop);
        if (!read.IsOk()) return read.Error();
        std::vector<CNamedRecord> records;
        for (const CServiceRecord& record : read.Value().records) {
            // The service begins again with its oldest record when the wanted one was gone meanwhile.
            if (record.number < first) continue;
            records.push_back({record, {}});
            if (const ErrorCode error = AddName(records.back()); error != ErrorCode::Success) return error;
            first = record.number + 1;
        }
        if (records.empty()) continue;
        if (const ErrorCode error = show(records); error != ErrorCode::Success) return error;
    }
}

}  // namespace quorbel
