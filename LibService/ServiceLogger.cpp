#include "LibService/ServiceLogger.h"

#include "platform/Text.h"
#include "platform/Thread.h"

namespace quorbel {

namespace {

const CTraceTexts& NoTexts() {
    static const CTraceTexts none;
    return none;
}

constexpr bool IsWarningOrError(std::uint32_t id) noexcept {
    return id >> 31 != 0;
}

}  // namespace

/// Writes when it is told to. What it is told during a write or the pause after it is one more write.
class CServiceLogger::CSavingThread {
 public:
    static CResult<std::unique_ptr<CSavingThread>> Start(CServiceLogger& logger) {
        auto wake = CEvent::Create(EventReset::Auto);
        if (!wake.IsOk()) return wake.Error();
        auto stop = CEvent::Create(EventReset::Manual);
        if (!stop.IsOk()) return stop.Error();
        auto saving =
            std::make_unique<CSavingThread>(logger, std::move(wake).Value(), std::move(stop).Value());
        auto thread = StartThread("TraceWriter", [raw = saving.get()] { raw->Run(); });
        if (!thread.IsOk()) return thread.Error();
        saving->m_thread = std::move(thread).Value();
        return saving;
    }
    CSavingThread(CServiceLogger& logger, std::shared_ptr<CEvent> wake, std::shared_ptr<CEvent> stop)
        : m_logger(logger), m_wake(std::move(wake)), m_stop(std::move(stop)) {}
    ~CSavingThread() {
        m_stop->Set();
        if (m_thread.joinable()) m_thread.join();
    }

    void Wake() noexcept {
        if (!m_isAwake.exchange(true)) m_wake->Set();
    }
    void WakeForLastRecords() noexcept {
        m_marksLast = true;
        Wake();
    }

 private:
    void Run() {
        for (;;) {
            const auto woken = WaitForAny({m_stop.get(), m_wake.get()});
            if (!woken.IsOk() || woken.Value() == 0) return;
            m_isAwake = false;
            const auto begin = m_logger.m_clock.Steady();
            SaveNow();
            m_logger.m_clock.Pause(PauseAfter(m_logger.m_clock.Steady() - begin), *m_stop);
        }
    }

    /// Of failures in a row the first one is reported.
    void SaveNow() noexcept try {
        const bool failedBefore = std::exchange(m_hasFailed, true);
        CStatus status = m_marksLast.exchange(false) ? m_logger.SaveLastRecords() : m_logger.Save();
        m_hasFailed = !status.IsOk();
        if (m_hasFailed && !failedBefore) status.Report();
    } catch (const std::bad_alloc&) {
        return;  // nothing can be told of it; what is to be saved stays so
    }

    std::chrono::milliseconds PauseAfter(std::chrono::nanoseconds writing) const {
        constexpr std::chrono::milliseconds kLongest(1000);
        if (m_hasFailed) return kLongest;
        const auto share =
            std::chrono::duration_cast<std::chrono::milliseconds>(writing * (kSavingShare - 1));
        return std::min(share, kLongest);
    }

    CServiceLogger& m_logger;
    const std::shared_ptr<CEvent> m_wake;
    const std::shared_ptr<CEvent> m_stop;
    std::atomic<bool> m_isAwake = false;
    std::atomic<bool> m_marksLast = false;
    bool m_hasFailed = false;  // of the thread
    std::thread m_thread;
};

CServiceLogger::CServiceLogger(std::string name, IClock& clock)
    : m_clock(clock),
      m_name(std::move(name)),
      m_startTime(clock.System()),
      m_texts(&NoTexts()),
      m_memory(m_name) {}

CServiceLogger::~CServiceLogger() {
    m_saver = nullptr;
    m_savingThread = nullptr;
    Save().Report();
}

CStatus CServiceLogger::LoadMessages(const std::filesystem::path& module) {
    auto loaded = CMessageModule::Load(module);
    if (!loaded.IsOk()) return SystemError(loaded.Error(), FromUtf8(module.native()));
    SetMessages(std::move(loaded).Value());
    return {};
}

void CServiceLogger::SetMessages(std::shared_ptr<const CMessageModule> module) {
    auto texts = std::make_unique<const CTraceTexts>(*module);
    const std::lock_guard guard(m_lock);
    // The texts before these may be in use and stay.
    m_texts.store(texts.get(), std::memory_order_release);
    m_ownTexts.push_back(std::move(texts));
}

void CServiceLogger::SetRecordSpan(std::uint32_t records) {
    const std::lock_guard guard(m_lock);
    m_memory.SetSpan(records);
}

void CServiceLogger::SetObserver(std::shared_ptr<ITraceObserver> observer) {
    {
        const std::lock_guard guard(m_lock);
        m_observer.swap(observer);
        m_isObserved = m_observer != nullptr;
    }
    // What was the observer may end here, and with it a thread: not under the lock.
    observer = nullptr;
}

CStatus CServiceLogger::StartSaving(std::filesystem::path folder) {
    {
        const std::lock_guard guard(m_saving);
        m_folder = std::make_unique<CTraceFolder>(std::move(folder), m_name, m_startTime);
    }
    auto thread = CSavingThread::Start(*this);
    if (!thread.IsOk()) return SystemError(thread.Error());
    m_savingThread = std::move(thread).Value();
    m_saver = m_savingThread.get();
    return {};
}

void CServiceLogger::Trace(const CTraceLoggable& object, std::uint32_t id,
                           std::initializer_list<TraceArgument> arguments) {
    const CTraceLevelMask mask = m_mask.load(std::memory_order_relaxed);
    if (!mask.Keeps(id)) return;
    const Saving saving = IsWarningOrError(id) ? Saving::Now : Saving::Later;
    Record(object, id, arguments, mask.ForcesSaving(id) ? saving : Saving::Never);
}

void CServiceLogger::TraceNoSave(const CTraceLoggable& object, std::uint32_t id,
                                 std::initializer_list<TraceArgument> arguments) {
    if (m_mask.load(std::memory_order_relaxed).Keeps(id)) Record(object, id, arguments, Saving::Never);
}

void CServiceLogger::Record(const CTraceLoggable& object, std::uint32_t id,
                            std::initializer_list<TraceArgument> arguments, Saving saving) noexcept {
    try {
        Keep(object, id, arguments, saving);
    } catch (const std::exception&) {
        return;  // out of memory: the record is dropped
    }
}

void CServiceLogger::Keep(const CTraceLoggable& object, std::uint32_t id,
                          std::initializer_list<TraceArgument> arguments, Saving saving) {
    const CTraceText& text = m_texts.load(std::memory_order_acquire)->Find(id);
    // What may be long is made without the lock.
    CTraceArgumentWriter encoded;
    text.Encode(arguments, encoded);
    if (!encoded.IsWhole()) return;
    std::wstring line;
    const bool isObserved = m_isObserved.load(std::memory_order_relaxed);
    if (isObserved) line = text.Render(DecodeArguments(encoded.Bytes()).value());

    const std::lock_guard guard(m_lock);
    const CLoggedObject& logged = Logged(object.TraceName());
    if (!m_memory.Append(id, logged, m_clock.System(), encoded.Bytes())) return;
    if (saving != Saving::Never) m_memory.MarkLast(kSavedRecords);
    const bool isUrgent = m_memory.TakeDropped() || saving == Saving::Now;
    if (CSavingThread* const saver = m_saver; isUrgent && saver) saver->Wake();
    if (m_recordArrives) std::exchange(m_recordArrives, nullptr)->Set();
    if (isObserved && m_observer) m_observer->OnRecord(logged.Name(), line);
}

const CLoggedObject& CServiceLogger::Logged(std::string_view name) {
    if (m_lastObject != nullptr && m_lastObject->Name() == name) return *m_lastObject;
    auto known = m_objects.find(name);
    if (known == m_objects.end()) {
        auto object = std::make_unique<const CLoggedObject>(std::string(name));
        m_keys.emplace(object->Key(), object.get());
        known = m_objects.emplace(name, std::move(object)).first;
    }
    m_lastObject = known->second.get();
    return *m_lastObject;
}

CStatus CServiceLogger::Save() {
    struct CPending {
        CTraceFile file;
        CTraceFileImage image;
    };
    const std::lock_guard saving(m_saving);
    if (!m_folder) return {};
    std::vector<CPending> pending;
    {
        const std::lock_guard guard(m_lock);
        for (const CTraceFile& file : m_memory.Changed()) pending.push_back({file, file.MarkedImage()});
        m_memory.NoteSaved();
    }
    ErrorCode failure = ErrorCode::Success;
    for (const CPending& next : pending) {
        const ErrorCode error = m_folder->Write(next.file.Number(), next.image);
        if (error == ErrorCode::Success) continue;
        failure = error;
        const std::lock_guard guard(m_lock);
        m_memory.PutBack(next.file);
    }
    if (failure == ErrorCode::Success) return {};
    return SystemError(failure, FromUtf8(m_folder->Path().native()));
}

CStatus CServiceLogger::SaveLastRecords() {
    {
        const std::lock_guard guard(m_lock);
        m_memory.MarkLast(kSavedRecords);
    }
    return Save();
}

void CServiceLogger::SaveLastRecordsSoon() noexcept {
    if (CSavingThread* const saver = m_saver) saver->WakeForLastRecords();
}

std::uint64_t CServiceLogger::NextRecord() const {
    const std::lock_guard guard(m_lock);
    return m_memory.NextRecord();
}

std::uint64_t CServiceLogger::OldestRecord() const {
    const std::lock_guard guard(m_lock);
    return m_memory.OldestRecord();
}

std::optional<CTraceSnapshot> CServiceLogger::ReadBlock(std::uint64_t number) const {
    const std::lock_guard guard(m_lock);
    const CTraceFile* const file = m_memory.FileOf(number);
    auto block = file ? file->BlockOf(number) : std::nullopt;
    if (!block) return std::nullopt;
    CTraceSnapshot snapshot{std::move(*block), {}};
    // Every object of a file is a logged one.
    for (const CTraceLoggable* object : file->Objects())
        snapshot.objects.push_back(static_cast<const CLoggedObject*>(object)->Key());
    return snapshot;
}

std::optional<CTraceRecord> CServiceLogger::Read(std::uint64_t number) const {
    const auto snapshot = ReadBlock(number);
    if (!snapshot) return std::nullopt;
    CTraceImageReader reader(snapshot->block.image, snapshot->block.first);
    auto entry = reader.Next();
    while (entry && entry->number != number) entry = reader.Next();
    if (!entry) return std::nullopt;
    return CTraceRecord{number,
                        entry->time,
                        entry->id,
                        snapshot->objects[entry->object],
                        {entry->arguments.begin(), entry->arguments.end()}};
}

CResult<std::shared_ptr<CEvent>> CServiceLogger::RecordArrives(std::uint64_t number) const {
    const std::lock_guard guard(m_lock);
    if (number < m_memory.NextRecord()) return std::shared_ptr<CEvent>();
    if (!m_recordArrives) {
        auto event = CEvent::Create(EventReset::Manual);
        if (!event.IsOk()) return event.Error();
        m_recordArrives = std::move(event).Value();
    }
    return m_recordArrives;
}

std::optional<std::string> CServiceLogger::ObjectName(std::uint64_t key) const {
    const std::lock_guard guard(m_lock);
    const auto found = m_keys.find(key);
    if (found == m_keys.end()) return std::nullopt;
    return std::string(found->second->Name());
}

std::wstring CServiceLogger::Text(const CTraceRecord& record) const {
    const auto values = DecodeArguments(record.arguments);
    return m_texts.load(std::memory_order_acquire)->Find(record.id).Render(values.value());
}

}  // namespace quorbel
