#include "LibService/ServiceLogger.h"

#include "platform/Text.h"

namespace quorbel {

CStatus CServiceLogger::LoadMessages(const std::filesystem::path& module) {
    auto loaded = CMessageModule::Load(module);
    if (!loaded.IsOk()) return SystemError(loaded.Error(), FromUtf8(module.native()));
    SetMessages(std::move(loaded).Value());
    return {};
}

void CServiceLogger::SetMessages(std::shared_ptr<const CMessageModule> module) {
    const std::lock_guard guard(m_lock);
    m_texts.SetModule(std::move(module));
}

void CServiceLogger::SetObserver(std::shared_ptr<ITraceObserver> observer) {
    {
        const std::lock_guard guard(m_lock);
        m_observer.swap(observer);
    }
    // What was the observer may end here, and with it a thread: not under the lock.
    observer = nullptr;
}

void CServiceLogger::Trace(const CTraceLoggable& object, std::uint32_t id,
                           std::initializer_list<TraceArgument> arguments) {
    // Nothing is saved while records live in memory only, so both operations are one.
    TraceNoSave(object, id, arguments);
}

void CServiceLogger::TraceNoSave(const CTraceLoggable& object, std::uint32_t id,
                                 std::initializer_list<TraceArgument> arguments) {
    if (!m_mask.load(std::memory_order_relaxed).Keeps(id)) return;
    try {
        Keep(object, id, arguments);
    } catch (const std::exception&) {
        return;  // out of memory: the record is dropped
    }
}

void CServiceLogger::Keep(const CTraceLoggable& object, std::uint32_t id,
                          std::initializer_list<TraceArgument> arguments) {
    const std::lock_guard guard(m_lock);
    const CTraceText& text = m_texts.Find(id);
    const CLoggedObject& logged = Logged(object.TraceName());
    CTraceRecord record{.number = 0,
                        .time = m_clock.System(),
                        .id = id,
                        .object = logged.Key(),
                        .arguments = text.Encode(arguments)};
    const std::wstring line = m_observer ? text.Render(record.arguments) : std::wstring();
    if (m_ring.Append(std::move(record)) && m_observer) m_observer->OnRecord(logged.TraceName(), line);
}

const CLoggedObject& CServiceLogger::Logged(const char* name) {
    const auto known = m_objects.find(std::string_view(name));
    if (known != m_objects.end()) return *known->second;
    auto object = std::make_unique<const CLoggedObject>(name);
    const CLoggedObject& logged = *object;
    m_keys.emplace(logged.Key(), &logged);
    m_objects.emplace(name, std::move(object));
    return logged;
}

std::uint64_t CServiceLogger::NextRecord() const {
    const std::lock_guard guard(m_lock);
    return m_ring.NextNumber();
}

std::optional<CTraceRecord> CServiceLogger::Read(std::uint64_t number) const {
    const std::lock_guard guard(m_lock);
    return m_ring.Read(number);
}

std::wstring CServiceLogger::Text(const CTraceRecord& record) const {
    const std::lock_guard guard(m_lock);
    return m_texts.Find(record.id).Render(record.arguments);
}

std::optional<std::string> CServiceLogger::ObjectName(std::uint64_t key) const {
    const std::lock_guard guard(m_lock);
    const auto found = m_keys.find(key);
    if (found == m_keys.end()) return std::nullopt;
    return std::string(found->second->TraceName());
}

}  // namespace quorbel
