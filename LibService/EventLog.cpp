#include "LibService/EventLog.h"

#include "LibService/MessageIds.h"
#include "platform/Clock.h"
#include "platform/Program.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::uint32_t kTypeFilter = 0x0F;
/// Error, warning, information, audit success and audit failure.
constexpr std::uint32_t kTypesSupported = 0x1F;

EventSeverity SeverityOf(std::uint32_t messageId) {
    return static_cast<EventSeverity>(messageId >> 30);
}

/// The bit of the type filter that lets entries of a severity pass.
std::uint32_t FilterBit(EventSeverity severity) {
    switch (severity) {
        case EventSeverity::Success:
        case EventSeverity::Informational: return 1 << 3;
        case EventSeverity::Warning: return 1 << 2;
        case EventSeverity::Error: return 1 << 1;
    }
    return 0;
}

std::string FileName(const std::string& path) {
    const std::size_t separator = path.find_last_of("/\\");
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

/// An entry's text where the module has none: what is known, in a line.
std::wstring PlainText(const CEventEntry& entry) {
    std::wstring text = L"Error message " + std::to_wstring(static_cast<std::int32_t>(entry.id));
    for (std::size_t i = 0; i < entry.strings.size(); ++i) {
        text.append(i == 0 ? L": " : L"; ").append(entry.strings[i]);
    }
    return text;
}

std::wstring EntryText(const CMessageModule* module, const CEventEntry& entry) {
    auto text = module ? module->Format(entry.id, entry.strings) : std::nullopt;
    if (!text) return PlainText(entry);
    while (!text->empty() && (text->back() == L'\n' || text->back() == L'\r')) text->pop_back();
    return std::move(*text);
}

/// Writes a registry value unless it already has its type and content.
template <class IsRight>
CStatus EnsureValue(IKey& key, std::wstring_view name, const CValue& wanted, IsRight isRight) {
    const CResult<CValue> found = key.Query(name);
    if (!found.IsOk() && found.Error() != ErrorCode::FileNotFound) return SystemError(found.Error());
    if (found.IsOk() && isRight(found.Value())) return {};
    const ErrorCode code = key.Set(name, wanted);
    if (code != ErrorCode::Success) return HResultError(static_cast<HRESULT>(ToNumber(code)));
    return {};
}

CStatus WriteSource(IKey& key, const std::wstring& modulePath) {
    RETURN_IF_FAILED(
        EnsureValue(key, L"EventMessageFile", CValue::FromText(modulePath, ValueType::ExpandableText),
                    [&modulePath](const CValue& value) {
                        return value.type == ValueType::ExpandableText && value.AsText() == modulePath;
                    }));
    return EnsureValue(key, L"TypesSupported", CValue::FromNumber32(kTypesSupported),
                       [](const CValue& value) {
                           return value.type == ValueType::Number32 && value.AsNumber32() == kTypesSupported;
                       });
}

}  // namespace

CEventLog& CEventLog::Instance() {
    // Never destroyed: threads may report until the very end of the process.
    static auto& instance = *new CEventLog;  // NOLINT(cppcoreguidelines-owning-memory)
    return instance;
}

void CEventLog::SetSink(std::shared_ptr<IEventSink> sink) {
    const std::lock_guard guard(m_lock);
    m_lastSink = sink.get();
    m_sink = std::move(sink);
}

void CEventLog::SetModulePath(std::filesystem::path module) {
    const std::lock_guard guard(m_lock);
    m_modulePath = std::move(module);
    m_module = nullptr;
}

std::filesystem::path CEventLog::ModulePath(const std::filesystem::path& program) {
    constexpr std::size_t kExtensionLength = 4;  // with its full stop
    const bool replaces = program.extension().native().size() == kExtensionLength;
    const std::filesystem::path stem = replaces ? program.stem() : program.filename();
    return program.parent_path() / ("Evt" + stem.native() + ".dll");
}

CResult<std::filesystem::path> CEventLog::FindModule() {
    {
        const std::lock_guard guard(m_lock);
        if (!m_modulePath.empty()) return m_modulePath;
    }
    const CResult<std::filesystem::path> program = ProgramPath();
    if (!program.IsOk()) return program.Error();
    return ModulePath(program.Value());
}

CResult<std::shared_ptr<const CMessageModule>> CEventLog::LoadModule() {
    const CResult<std::filesystem::path> path = FindModule();
    if (!path.IsOk()) return path.Error();
    const std::lock_guard guard(m_lock);
    if (m_module) return m_module;
    auto module = CMessageModule::Load(path.Value());
    if (!module.IsOk()) return module.Error();
    m_module = module.Value();
    if (!m_hasIntroduction) {
        const std::vector<std::wstring> none(1);
        const std::wstring text = m_module->Format(message::kUnhandledFault, none).value_or(L"");
        m_introduction.Append(ToUtf8(text.substr(0, text.find_first_of(L"\r\n"))));
        m_hasIntroduction = true;
    }
    return module;
}

std::shared_ptr<const CMessageModule> CEventLog::Module() {
    {
        const std::lock_guard guard(m_lock);
        if (m_module) return m_module;
    }
    const auto module = LoadModule();
    return module.IsOk() ? module.Value() : nullptr;
}

CStatus CEventLog::Register(std::wstring_view name, IKey& localMachine) {
    const CResult<std::filesystem::path> path = FindModule();
    if (!path.IsOk()) return SystemError(path.Error());
    const auto module = LoadModule();
    if (!module.IsOk()) return SystemError(module.Error());
    std::wstring keyPath = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\";
    keyPath.append(name).append(L"\\").append(name);
    const auto key = localMachine.Create(keyPath);
    if (!key.IsOk()) return HResultError(static_cast<HRESULT>(ToNumber(key.Error())));
    return WriteSource(*key.Value(), FromUtf8(path.Value().native()));
}

void CEventLog::Report(const CError& error) noexcept try {
    CEventEntry entry;
    entry.id = error.GetMessageId();
    entry.severity = SeverityOf(entry.id);
    for (std::size_t i = 0; i < error.GetInsertCount(); ++i)
        entry.strings.push_back(TrimInsert(error.GetInsert(i)));
    if (entry.severity >= EventSeverity::Warning) {
        entry.source = FileName(error.SourceFile());
        entry.line = error.SourceLine();
    }
    Write(std::move(entry));
} catch (const std::exception&) {
    return;  // out of memory: the entry is dropped
}

void CEventLog::ReportMessage(std::uint32_t messageId,
                              std::initializer_list<std::wstring_view> inserts) noexcept try {
    CEventEntry entry;
    entry.id = messageId;
    entry.severity = SeverityOf(messageId);
    const auto module = Module();
    const std::size_t count = module ? module->InsertCount(messageId) : 0;
    entry.strings.assign(inserts.begin(), inserts.end());
    entry.strings.resize(count);
    Write(std::move(entry));
} catch (const std::exception&) {
    return;  // out of memory: the entry is dropped
}

void CEventLog::WriteLastWords(std::string_view text) noexcept {
    const std::string_view introduction = m_hasIntroduction ? m_introduction.View() : "";
    const CLastWords words{message::kUnhandledFault, text, introduction};
    if (IEventSink* const sink = m_lastSink) return sink->WriteLastWords(words);
    ShowLastWords(words);
}

void CEventLog::Write(CEventEntry entry) {
    if ((kTypeFilter & FilterBit(entry.severity)) == 0) return;
    std::shared_ptr<IEventSink> sink;
    {
        const std::lock_guard guard(m_lock);
        sink = m_sink;
    }
    if (!sink) return;
    entry.time = SystemClock().System();
    entry.user = CurrentUserName();
    entry.text = EntryText(Module().get(), entry);
    sink->Write(entry);
}

}  // namespace quorbel
