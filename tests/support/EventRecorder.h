#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "LibService/EventLog.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {

/// An event sink that keeps the entries for a test to look at.
class CEventRecorder final : public IEventSink {
 public:
    void Write(const CEventEntry& entry) noexcept override {
        const std::lock_guard guard(m_lock);
        m_entries.push_back(entry);
    }
    void WriteLastWords(const CLastWords&) noexcept override {}
    /// The entries since the last call.
    std::vector<CEventEntry> Take() {
        const std::lock_guard guard(m_lock);
        return std::exchange(m_entries, {});
    }

 private:
    std::mutex m_lock;
    std::vector<CEventEntry> m_entries;
};

/// The event log with a recorder for its sink and the service's message module, or another one; put back to
/// how it was at the end.
class CRecordedEventLog {
 public:
    CRecordedEventLog() : CRecordedEventLog(std::string(QUORBEL_PROGRAMS) + "/EvtQBHTTPService.dll") {}
    explicit CRecordedEventLog(const std::filesystem::path& module) {
        CEventLog::Instance().SetModulePath(module);
        CEventLog::Instance().SetSink(m_recorder);
    }
    ~CRecordedEventLog() {
        CEventLog::Instance().SetSink(nullptr);
        CEventLog::Instance().SetModulePath({});
    }
    CRecordedEventLog(const CRecordedEventLog&) = delete;
    CRecordedEventLog& operator=(const CRecordedEventLog&) = delete;

    std::vector<CEventEntry> Take() { return m_recorder->Take(); }

 private:
    const std::shared_ptr<CEventRecorder> m_recorder = std::make_shared<CEventRecorder>();
};

}  // namespace quorbel
