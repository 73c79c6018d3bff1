#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "LibService/Status.h"
#include "LibService/TraceLogger.h"
#include "LibService/TraceRing.h"
#include "LibService/trace/TraceText.h"
#include "platform/Clock.h"
#include "platform/Lock.h"

namespace quorbel {

/// Sees records as text, as they are kept. Called under the logger's lock: it must neither wait nor trace.
class ITraceObserver {
 public:
    virtual ~ITraceObserver() = default;
    virtual void OnRecord(std::string_view object, std::wstring_view text) noexcept = 0;
};

/// The one object that stands for all objects of a name.
class CLoggedObject final : public CTraceLoggable {
 public:
    explicit CLoggedObject(std::string name) : m_name(std::move(name)) {}
    const char* TraceName() const override { return m_name.c_str(); }
    /// Unique in the process.
    std::uint64_t Key() const noexcept { return reinterpret_cast<std::uintptr_t>(this); }

 private:
    const std::string m_name;
};

/// The service's logger: keeps the most recent records in memory. Everything may be called from any thread.
class CServiceLogger final : public CTraceLogger {
 public:
    explicit CServiceLogger(IClock& clock = SystemClock()) : m_clock(clock) {}

    /// Reads the trace message module; without it records carry no arguments and have no text.
    CStatus LoadMessages(const std::filesystem::path& module);
    void SetMessages(std::shared_ptr<const CMessageModule> module);
    void SetLevelMask(CTraceLevelMask mask) noexcept { m_mask.store(mask, std::memory_order_relaxed); }
    /// Shows every record kept from now on to the observer; null ends that.
    void SetObserver(std::shared_ptr<ITraceObserver> observer);

    void Trace(const CTraceLoggable& object, std::uint32_t id,
               std::initializer_list<TraceArgument> arguments = {}) override;
    void TraceNoSave(const CTraceLoggable& object, std::uint32_t id,
                     std::initializer_list<TraceArgument> arguments = {}) override;

    /// The number that the next record will get; records are numbered from 0.
    std::uint64_t NextRecord() const;
    /// A record that is still kept.
    std::optional<CTraceRecord> Read(std::uint64_t number) const;
    /// The record's text; empty without the trace message module.
    std::wstring Text(const CTraceRecord& record) const;
    /// The name of the object with that key.
    std::optional<std::string> ObjectName(std::uint64_t key) const;

 private:
    void Keep(const CTraceLoggable& object, std::uint32_t id, std::initializer_list<TraceArgument> arguments);
    const CLoggedObject& Logged(const char* name);

    IClock& m_clock;
    std::atomic<CTraceLevelMask> m_mask{CTraceLevelMask()};

    mutable CMutex m_lock{LockRank::TraceLogger};  // guards what follows
    mutable CTraceTexts m_texts;
    std::map<std::string, std::unique_ptr<const CLoggedObject>, std::less<>> m_objects;
    std::map<std::uint64_t, const CLoggedObject*> m_keys;
    CTraceRing m_ring;
    std::shared_ptr<ITraceObserver> m_observer;
};

}  // namespace quorbel
