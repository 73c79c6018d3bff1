#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "LibService/TraceLogger.h"
#include "platform/Text.h"

namespace quorbel {

/// A trace logger that keeps what it is given for a test to look at, or to wait for.
class CTraceRecorder final : public CTraceLogger {
 public:
    struct Record {
        std::string object;
        std::uint32_t id;
        std::size_t arguments;
    };
    void Trace(const CTraceLoggable& object, std::uint32_t id,
               std::initializer_list<TraceArgument> arguments = {}) override {
        const std::lock_guard lock(m_lock);
        m_records.push_back({object.TraceName(), id, arguments.size()});
        for (const TraceArgument& argument : arguments) {
            if (const auto* text = std::get_if<std::wstring_view>(&argument.Get())) m_texts.append(*text);
            if (const auto* text = std::get_if<std::string_view>(&argument.Get())) m_texts += FromUtf8(*text);
        }
        m_changed.notify_all();
    }
    void TraceNoSave(const CTraceLoggable& object, std::uint32_t id,
                     std::initializer_list<TraceArgument> arguments = {}) override {
        Trace(object, id, arguments);
    }

    std::size_t Count(std::uint32_t id) const {
        const std::lock_guard lock(m_lock);
        return CountLocked(id);
    }
    /// The texts of all records, one after the other.
    std::wstring Texts() const {
        const std::lock_guard lock(m_lock);
        return m_texts;
    }
    /// False when it took unreasonably long.
    bool WaitFor(std::uint32_t id, std::size_t count) const {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, std::chrono::seconds(60), [&] { return CountLocked(id) >= count; });
    }

 private:
    std::size_t CountLocked(std::uint32_t id) const {
        return static_cast<std::size_t>(
            std::count_if(m_records.begin(), m_records.end(), [id](const Record& r) { return r.id == id; }));
    }
    mutable std::mutex m_lock;
    mutable std::condition_variable m_changed;
    std::vector<Record> m_records;
    std::wstring m_texts;
};

}  // namespace quorbel
