#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "LibService/Status.h"
#include "LibService/TraceLogger.h"
#include "LibService/trace/TraceFolder.h"
#include "LibService/trace/TraceMemory.h"
#include "LibService/trace/TraceText.h"
#include "platform/Clock.h"
#include "platform/Event.h"
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
    std::string_view Name() const noexcept { return m_name; }
    /// Unique in the process.
    std::uint64_t Key() const noexcept { return reinterpret_cast<std::uintptr_t>(this); }

 private:
    const std::string m_name;
};

/// One kept record.
struct CTraceRecord {
    std::uint64_t number = 0;
    std::uint64_t time = 0;  ///< 100 ns units since 1601-01-01 UTC
    std::uint32_t id = 0;
    std::uint64_t object = 0;             ///< key of the logged object
    std::vector<std::uint8_t> arguments;  ///< encoded (trace/TraceArguments.h)
};

/// A copy of the block that holds a record, to be read at leisure (CTraceImageReader).
struct CTraceSnapshot {
    CTraceBlock block;
    std::vector<std::uint64_t> objects;  ///< keys by index
};

/// The service's logger: keeps the most recent records in memory and saves those that led up to an error.
/// Everything may be called from any thread.
class CServiceLogger final : public CTraceLogger {
 public:
    /// How many records before one that forces saving are saved with it.
    static constexpr std::uint64_t kSavedRecords = 1000;
    /// Saving takes one part in this many of the time at most, a second's pause between two writes at most.
    static constexpr int kSavingShare = 10;

    /// `name` is the service's; the files of this run bear it and the time at which the logger is made.
    explicit CServiceLogger(std::string name = "Service", IClock& clock = SystemClock());
    /// Saves what is to be saved.
    ~CServiceLogger() override;

    /// Reads the trace message module; without it records carry no arguments and have no text.
    CStatus LoadMessages(const std::filesystem::path& module);
    void SetMessages(std::shared_ptr<const CMessageModule> module);
    void SetLevelMask(CTraceLevelMask mask) noexcept { m_mask.store(mask, std::memory_order_relaxed); }
    /// How many records are kept in memory, rounded up to whole files; 0 for no limit.
    void SetRecordSpan(std::uint32_t records);
    /// Shows every record kept from now on to the observer; null ends that.
    void SetObserver(std::shared_ptr<ITraceObserver> observer);
    /// Saves to this folder (CTraceFolder), from a thread of its own. Without a folder nothing is saved.
    /// Called at most once. Errors: those of starting a thread.
    CStatus StartSaving(std::filesystem::path folder);

    void Trace(const CTraceLoggable& object, std::uint32_t id,
               std::initializer_list<TraceArgument> arguments = {}) override;
    void TraceNoSave(const CTraceLoggable& object, std::uint32_t id,
                     std::initializer_list<TraceArgument> arguments = {}) override;

    /// Writes every file that has something to save, and returns when that is done. What cannot be written is
    /// kept for the next time. The error is that of the last file that could not be written.
    CStatus Save();
    /// Marks the last records for saving, and saves them.
    CStatus SaveLastRecords();
    /// Has that done by the thread that saves. Neither waits nor locks.
    void SaveLastRecordsSoon() noexcept;

    /// The number that the next record will get; records are numbered from 0.
    std::uint64_t NextRecord() const;
    /// The number of the oldest record that is still kept; NextRecord() when there is none.
    std::uint64_t OldestRecord() const;
    /// A record that is still kept.
    std::optional<CTraceRecord> Read(std::uint64_t number) const;
    /// The block that holds a record that is still kept.
    std::optional<CTraceSnapshot> ReadBlock(std::uint64_t number) const;
    /// An event (manual reset) that is set once the record exists, shared by all who wait; null when it
    /// exists already.
    CResult<std::shared_ptr<CEvent>> RecordArrives(std::uint64_t number) const;
    /// The name of the object with that key.
    std::optional<std::string> ObjectName(std::uint64_t key) const;
    /// The record's text; empty without the trace message module.
    std::wstring Text(const CTraceRecord& record) const;

 private:
    enum class Saving { Never, Later, Now };
    class CSavingThread;

    // Apart from the look at the mask, which most calls end with: its frame is large.
    [[gnu::noinline]] void Record(const CTraceLoggable& object, std::uint32_t id,
                                  std::initializer_list<TraceArgument> arguments, Saving saving) noexcept;
    void Keep(const CTraceLoggable& object, std::uint32_t id, std::initializer_list<TraceArgument> arguments,
              Saving saving);
    const CLoggedObject& Logged(std::string_view name);

    IClock& m_clock;
    const std::string m_name;
    const std::uint64_t m_startTime;
    std::atomic<CTraceLevelMask> m_mask{CTraceLevelMask()};
    std::atomic<const CTraceTexts*> m_texts;
    std::atomic<bool> m_isObserved = false;
    std::atomic<CSavingThread*> m_saver = nullptr;  // m_savingThread, once it runs

    CMutex m_saving{LockRank::TraceSaving};  // held while files are written; guards:
    std::unique_ptr<CTraceFolder> m_folder;

    mutable CMutex m_lock{LockRank::TraceLogger};  // guards what follows
    std::vector<std::unique_ptr<const CTraceTexts>> m_ownTexts;
    std::map<std::string, std::unique_ptr<const CLoggedObject>, std::less<>> m_objects;
    std::map<std::uint64_t, const CLoggedObject*> m_keys;
    const CLoggedObject* m_lastObject = nullptr;
    CTraceMemory m_memory;
    std::shared_ptr<ITraceObserver> m_observer;
    mutable std::shared_ptr<CEvent> m_recordArrives;  // set with the next record, if anybody waits

    std::unique_ptr<CSavingThread> m_savingThread;  // last: it uses everything above
};

}  // namespace quorbel
