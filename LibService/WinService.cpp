#include "LibService/WinService.h"

#include <mutex>
#include <ostream>

#include "LibService/MessageIds.h"
#include "platform/Program.h"
#include "platform/Text.h"
#include "platform/VisibleText.h"

namespace quorbel {

namespace {

constexpr std::uint32_t kAcceptedWhenRunning = kAcceptStop | kAcceptShutdown;

constexpr std::string_view kHelp =
    " -install | -remove | -debug | -help\n"
    "  -install  install the service, so that it starts with the system\n"
    "  -remove   stop the service and remove it\n"
    "  -debug    run as an ordinary process until it is interrupted (Ctrl-C, SIGTERM); events are also\n"
    "            written to standard error, and requests to standard output when that is a terminal\n"
    "  -help     this text\n"
    "Without a parameter, the activity of the running service is shown.\n"
    "The configuration is a registry tree: see 'qbctl reg --help' and docs/configuration.md.\n";

/// The text of an error for whoever started the program.
std::string TextForUser(const CStatus& failure) {
    std::wstring text = failure.Text();
    if (failure.Error()->GetMessageId() == message::kSystemErrorWithText) {
        text.append(L" (").append(failure.Error()->GetInsert(2)).append(L")");
    }
    return ToVisibleUtf8(text);
}

}  // namespace

CWinService::CWinService(std::wstring serviceName, std::wstring displayName,
                         std::vector<std::wstring> parameters, CHost host)
    : CWinApp(std::move(parameters)),
      m_serviceName(std::move(serviceName)),
      m_displayName(std::move(displayName)),
      m_host(std::move(host)) {}

CWinService::~CWinService() = default;

CStatus CWinService::CreateWork() {
    auto close = CEvent::Create(EventReset::Manual);
    if (!close.IsOk()) return SystemError(close.Error());
    m_close = std::move(close).Value();
    auto threads = CThreadSet::Create(m_host.clock, m_host.startThread);
    if (!threads.IsOk()) return SystemError(threads.Error());
    m_threads = std::move(threads).Value();
    auto work = CWorkItems::Create(*m_threads);
    if (!work.IsOk()) return SystemError(work.Error());
    m_work = std::move(work).Value();
    return {};
}

void CWinService::InitInstance() {
    if (!InitialiseFramework()) {
        Fail(SystemError(ErrorCode::InternalError, L"the framework cannot be initialised"));
        return;
    }
    CServiceCommandLineInfo info(m_host.isStartedByManager);
    ParseCommandLine(Parameters(), info);
    CStatus status = CreateWork();
    if (status.IsOk()) status = RunCommandLine(info);
    if (status.IsOk()) return;
    Fail(status);
    Ignore(m_host.preparation.OpenEventLog(EventDisplay::None));
    status.Report();
}

CStatus CWinService::RunCommandLine(const CServiceCommandLineInfo& info) {
    CStatus status;
    if (info.IsDebug()) status = RunInDebugMode();
    if (info.RunsUnderManager()) return RunUnderManager();
    if (status.IsOk()) status = RunCommand(info);
    EndDebugMode();
    return status;
}

CStatus CWinService::RunCommand(const CServiceCommandLineInfo& info) {
    switch (info.Command()) {
        case ShellCommand::None:
        case ShellCommand::Nothing: return ShowActivity(info.IsDebug());
        case ShellCommand::Install: return Install();
        case ShellCommand::Remove: return Remove();
        case ShellCommand::Invalid: return ShowInvalidParameter(info.InvalidParameter());
        case ShellCommand::Help: return ShowHelp();
    }
    return {};
}

CStatus CWinService::Prepare(EventDisplay display) {
    UseLocaleOfUser();
    RETURN_IF_FAILED(m_host.preparation.OpenEventLog(display));
    RETURN_IF_FAILED(m_host.preparation.RegisterEventSource());
    return m_host.preparation.SetUpTracing();
}

CStatus CWinService::RunInDebugMode() {
    RETURN_IF_SYSTEM_ERROR(m_host.setOnStopSignals(m_close));
    RETURN_IF_FAILED(Prepare(EventDisplay::StandardError));
    RETURN_IF_FAILED(Start());
    m_isStartedInDebugMode = true;
    return {};
}

void CWinService::EndDebugMode() {
    if (!m_isStartedInDebugMode) return;
    Stop();
    Wait(std::nullopt);
}

CStatus CWinService::RunUnderManager() {
    RETURN_IF_FAILED(Prepare(EventDisplay::None));
    const IServiceManager::TableEntry table[] = {{m_serviceName.c_str(), &ServiceMainRoutine},
                                                 {nullptr, nullptr}};
    RETURN_IF_SYSTEM_ERROR(m_host.manager.RunDispatcher(table));
    return {};
}

CStatus CWinService::ShowActivity(bool isDebug) {
    if (!isDebug) RETURN_IF_SYSTEM_ERROR(m_host.setOnStopSignals(m_close));
    if (m_host.dialogs.ShowActivity(m_serviceName, *m_close) == DialogOutcome::Closed) return {};
    if (isDebug) {
        const auto closed = WaitForAny({m_close.get()});
        return closed.IsOk() ? CStatus() : SystemError(closed.Error());
    }
    if (m_host.showActivityAsText) return m_host.showActivityAsText(m_serviceName, *m_close);
    m_host.errors << "Usage: " << ToUtf8(m_serviceName) << kHelp;
    return SystemError(ErrorCode::NotSupported, L"there is no display to show the service's activity on");
}

CStatus CWinService::ShowInvalidParameter(const std::wstring& parameter) {
    m_isRefused = true;
    if (m_host.dialogs.ShowInvalidParameter(parameter) == DialogOutcome::Closed) return {};
    m_host.errors << ToUtf8(InvalidParameterText(parameter)) << "\n";
    return {};
}

CStatus CWinService::ShowHelp() {
    m_host.output << "Usage: " << ToUtf8(m_serviceName) << kHelp;
    return {};
}

CStatus CWinService::Install() {
    const auto program = ProgramPath();
    if (!program.IsOk()) return SystemError(program.Error());
    const auto database = m_host.manager.OpenDatabase();
    if (!database.IsOk()) return SystemError(database.Error());
    RETURN_IF_SYSTEM_ERROR(database.Value()->Create({m_serviceName, m_displayName, program.Value()}));
    return {};
}

CStatus CWinService::Remove() {
    const auto database = m_host.manager.OpenDatabase();
    if (!database.IsOk()) return SystemError(database.Error());
    const auto service = database.Value()->Open(m_serviceName);
    if (!service.IsOk()) return SystemError(service.Error());
    if (service.Value()->Stop() == ErrorCode::Success) WaitUntilStopped(*service.Value());
    RETURN_IF_SYSTEM_ERROR(service.Value()->Delete());
    return {};
}

void CWinService::WaitUntilStopped(IKnownService& service) {
    for (;;) {
        m_host.clock.Pause(kStopPollPause, *m_close);
        const auto state = service.QueryState();
        if (!state.IsOk() || state.Value() != ServiceState::StopPending) return;
    }
}

void CWinService::ServiceMainRoutine() {
    if (auto* const service = dynamic_cast<CWinService*>(Instance())) service->ServiceMain();
}

std::uint32_t CWinService::HandlerRoutine(std::uint32_t control, std::uint32_t eventType, void* eventData) {
    auto* const service = dynamic_cast<CWinService*>(Instance());
    if (!service) return ToNumber(ErrorCode::CallNotImplemented);
    return service->HandlerEx(control, eventType, eventData);
}

void CWinService::ServiceMain() {
    const ErrorCode registered = m_host.manager.RegisterHandler(m_serviceName.c_str(), &HandlerRoutine);
    if (registered != ErrorCode::Success) return Fail(SystemError(registered));
    ReportState(ServiceState::StartPending, kAcceptNothing, 0, kStartWaitHint);
    ReportState(ServiceState::Running, kAcceptedWhenRunning, 0, {});
    std::uint32_t exitCode = 0;
    if (const CStatus status = Start(); status.IsOk()) {
        exitCode = Wait(std::nullopt);
    } else {
        exitCode = status.Error()->GetCode();
        status.Report();
        Fail(status);
    }
    ReportState(ServiceState::Stopped, kAcceptNothing, exitCode, {});
}

std::uint32_t CWinService::HandlerEx(std::uint32_t control, std::uint32_t eventType, void* eventData) {
    switch (static_cast<ServiceControl>(control)) {
        case ServiceControl::Stop:
        case ServiceControl::Shutdown:
            ReportState(ServiceState::StopPending, kAcceptNothing, 0, {});
            Stop();
            return 0;
        case ServiceControl::Interrogate: ReportStateAgain(); return 0;
        case ServiceControl::DeviceEvent: return OnDeviceEvent(eventType, eventData);
    }
    return ToNumber(ErrorCode::CallNotImplemented);
}

std::uint32_t CWinService::OnDeviceEvent(std::uint32_t /*eventType*/, void* /*eventData*/) {
    return 0;
}

void CWinService::ReportStatus(const std::function<void(CServiceStatus&)>& change) {
    const std::lock_guard guard(m_lock);
    // A stop that arrives as the work ends finds the service stopped: it stays so.
    if (m_status.state == ServiceState::Stopped) return;
    change(m_status);
    // A manager that does not listen has nothing else to be told with.
    Ignore(m_host.manager.SetStatus(m_status));
}

void CWinService::ReportState(ServiceState state, std::uint32_t accepted, std::uint32_t exitCode,
                              std::chrono::milliseconds waitHint) {
    ReportStatus([&](CServiceStatus& status) {
        status = {.state = state,
                  .accepted = accepted,
                  .exitCode = exitCode,
                  .waitHint = static_cast<std::uint32_t>(waitHint.count())};
        AdvanceCheckPoint(status);
    });
}

void CWinService::ReportStateAgain() {
    ReportStatus([this](CServiceStatus& status) {
        status.accepted = status.state == ServiceState::Running ? kAcceptedWhenRunning : kAcceptNothing;
        AdvanceCheckPoint(status);
    });
}

/// Only a change of state that lasts has steps to count.
void CWinService::AdvanceCheckPoint(CServiceStatus& status) {
    const bool isLasting = status.state == ServiceState::Running || status.state == ServiceState::Stopped;
    status.checkPoint = isLasting ? 0 : ++m_checkPoints;
}

void CWinService::Fail(const CStatus& failure) {
    const std::lock_guard guard(m_lock);
    if (m_failure.IsOk()) m_failure = failure;
}

int CWinService::ExitInstance() {
    m_work.reset();
    m_threads.reset();
    CWinApp::ExitInstance();
    const std::lock_guard guard(m_lock);
    if (m_failure.IsOk()) return m_isRefused ? 1 : 0;
    m_host.errors << ToUtf8(m_serviceName) << ": " << TextForUser(m_failure) << "\n";
    return 1;
}

}  // namespace quorbel
