#include "service/ServiceEnvironment.h"

#include "LibService/ConsoleEcho.h"
#include "LibService/EventLog.h"
#include "platform/File.h"
#include "platform/Program.h"
#include "platform/Root.h"
#include "platform/Terminal.h"
#include "platform/eventlog/EventSink.h"

namespace quorbel {

namespace {

std::shared_ptr<IEventSink> CreateSink(const std::filesystem::path& root, EventDisplay display) {
    if (StartedByServiceManager()) return CreateJournalSink(CQuorbelHTTPService::kDisplayName);
    return CreateFileSink(
        root, display == EventDisplay::StandardError ? EventEcho::StandardError : EventEcho::None);
}

}  // namespace

CStatus CServiceEnvironment::OpenEventLog(EventDisplay display) {
    if (!m_root.empty()) return {};
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return SystemError(root.Error(), L"root folder");
    m_root = root.Value();
    CEventLog::Instance().SetSink(CreateSink(m_root, display));
    return {};
}

CStatus CServiceEnvironment::RegisterEventSource() {
    RETURN_IF_SYSTEM_ERROR(RaiseOpenFileLimit());
    auto registry = OpenRootRegistry();
    if (!registry.IsOk()) return SystemError(registry.Error(), L"registry");
    m_registry = std::move(registry).Value();
    m_localMachine = m_registry->LocalMachine();
    return CEventLog::Instance().Register(CQuorbelHTTPService::kDisplayName, *m_localMachine);
}

CStatus CServiceEnvironment::SetUpTracing() {
    RETURN_IF_FAILED(StartTracing());
    RETURN_IF_FAILED(StartCrashReports());
    EchoToTerminal();
    return {};
}

CStatus CServiceEnvironment::StartTracing() {
    const auto program = ProgramPath();
    if (!program.IsOk()) return SystemError(program.Error());
    RETURN_IF_FAILED(LoadTraceModule(m_trace, *m_localMachine, CQuorbelHTTPService::kServiceName,
                                     program.Value().parent_path()));
    m_traceSettings = CTraceSettings::Read(*m_localMachine, CQuorbelHTTPService::kDisplayName, m_root);
    m_trace.SetLevelMask(m_traceSettings.mask);
    m_trace.SetRecordSpan(m_traceSettings.span);
    return m_trace.StartSaving(m_traceSettings.folder);
}

CStatus CServiceEnvironment::StartCrashReports() {
    return CCrashReports::Create({.folder = m_traceSettings.folder,
                                  .serviceName = CQuorbelHTTPService::kServiceName,
                                  .afterDump = [this] { m_trace.SaveLastRecordsSoon(); }},
                                 m_crashReports);
}

void CServiceEnvironment::EchoToTerminal() {
    if (!StandardOutputIsTerminal()) return;
    auto echo = CConsoleEcho::Create(kStandardOutput);
    // The service runs as well without: its records are kept.
    if (echo.IsOk()) m_trace.SetObserver(std::move(echo).Value());
}

}  // namespace quorbel
