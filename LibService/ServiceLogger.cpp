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
    std::shared_ptr<const CTraceText> text;
    bool observed = false;
    {
        const std::lock_guard guard(m_lock);
        text = m_texts.Find(id);
        observed = m_observer != nullptr;
    }
    // What may be long is made and measured without the lock.
    std::vector<TraceValue> values = text->Encode(arguments);
    if (!CTraceRing::Fits(values)) return;
    const std::wstring line = observed ? text->Render(values) : std::wstring();

    const std::lock_guard guard(m_lock);
    const CLoggedObject& logged = Logged(object.TraceName());
    const bool kept = m_ring.Append({.number = 0,
                                     .time = m_clock.System(),
                                     .id = id,
                                     .object = logged.Key(),
                                     .arguments = std::move(values)});
    if (kept && observed && m_observer) m_observer->OnRecord(logged.TraceName(), line);
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
    std::shared_ptr<const CTraceText> text;
    {
        const std::lock_guard guard(m_lock);
        text = m_texts.Find(record.id);
    }
    return text->Render(record.arguments);
}

std::optional<std::string> CServiceLogger::ObjectName(std::uint64_t key) const {
    const std::lock_guard guard(m_lock);
    const auto found = m_keys.find(key);
    if (found == m_keys.end()) return std::nullopt;
    return std::string(found->second->TraceName());
}

}  // namespace quorbel
