#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LibService/ServiceDialogs.h"
#include "LibService/ServicePreparation.h"
#include "LibService/Status.h"
#include "LibService/ThreadSet.h"
#include "LibService/TraceLogger.h"
#include "LibService/WorkItems.h"
#include "platform/Clock.h"
#include "platform/framework/CommandLine.h"
#include "platform/framework/WinApp.h"
#include "platform/service_manager/ServiceManager.h"

namespace quorbel {

/// The application object of a service: takes in the command line, installs or removes the service, runs its
/// work under the service manager or in this process, and stands between the manager and the work.
class CWinService : public CWinApp, public CTraceLoggable {
 public:
    class CServiceCommandLineInfo;

    static constexpr std::chrono::milliseconds kStartWaitHint{3000};
    /// Between two questions whether a service that is being removed has stopped.
    static constexpr std::chrono::milliseconds kStopPollPause{1000};

    /// What the application stands on; all of it outlives the object.
    struct CHost {
        IServiceManager& manager;
        IServiceDialogs& dialogs;
        IServicePreparation& preparation;
        IClock& clock;
        std::ostream& output;
        std::ostream& errors;
        /// Whether the service manager started this process.
        bool isStartedByManager = false;
        /// Has the event set when the user or the system asks the process to stop.
        std::function<ErrorCode(std::shared_ptr<CEvent>)> setOnStopSignals = {};
        /// Starts the threads of the service's work.
        CThreadSet::Starter startThread = {};
        /// Shows the activity of the running service of that name as text, until `close` is set; empty when
        /// there is nothing that could.
        std::function<CStatus(const std::wstring& serviceName, CEvent& close)> showActivityAsText = {};
    };

    CWinService(std::wstring serviceName, std::wstring displayName, std::vector<std::wstring> parameters,
                CHost host);
    ~CWinService() override;

    /// Runs what the command line asks for, to its end.
    void InitInstance() override;
    /// 0 when no error occurred, else 1, with the error's text on `errors`.
    int ExitInstance() override;

    /// Begins the service's work.
    virtual CStatus Start() = 0;
    /// Asks the work to end; may be called from any thread, more than once, also before Start.
    virtual void Stop() = 0;
    /// Waits for the end of the work, without a time-out for as long as it takes; the work's exit code, a
    /// Win32 error number.
    virtual std::uint32_t Wait(std::optional<std::chrono::milliseconds> timeout) = 0;
    /// Whether any work is running.
    virtual bool IsRunning() const = 0;
    /// Answers a device's event.
    virtual std::uint32_t OnDeviceEvent(std::uint32_t eventType, void* eventData);
    /// The service's life under the service manager, on a thread of the dispatcher.
    virtual void ServiceMain();
    /// Answers the manager's controls: 0, or an error number.
    virtual std::uint32_t HandlerEx(std::uint32_t control, std::uint32_t eventType, void* eventData);
    /// Starts the work item that serves one connection to the service's API.
    virtual CStatus StartApiConnection(const CWorkItems::Work& serve) = 0;

    const std::wstring& ServiceName() const noexcept { return m_serviceName; }
    const std::wstring& DisplayName() const noexcept { return m_displayName; }

    /// What the service manager is handed. The handler answers ERROR_CALL_NOT_IMPLEMENTED without an
    /// application object.
    /// @{
    static void ServiceMainRoutine();
    static std::uint32_t HandlerRoutine(std::uint32_t control, std::uint32_t eventType, void* eventData);
    /// @}

 protected:
    /// The work and its threads. Valid from the beginning of the application's own work until its end.
    CWorkItems& Work() noexcept { return *m_work; }
    const CWorkItems& Work() const noexcept { return *m_work; }
    /// The work has ended by itself, or never began: nobody needs to wait for the user any more.
    void NoteEndOfWork() noexcept { m_close->Set(); }
    /// The application ends with this error; the first one counts. Any thread.
    void Fail(const CStatus& failure);

 private:
    CStatus CreateWork();
    CStatus RunCommandLine(const CServiceCommandLineInfo& info);
    CStatus RunCommand(const CServiceCommandLineInfo& info);
    CStatus Prepare(EventDisplay display);
    CStatus RunInDebugMode();
    CStatus RunUnderManager();
    CStatus ShowActivity(bool isDebug);
    CStatus ShowInvalidParameter(const std::wstring& parameter);
    CStatus ShowHelp();
    CStatus Install();
    CStatus Remove();
    void WaitUntilStopped(IKnownService& service);
    void EndDebugMode();
    /// Reports the state that `change` makes of the last one; nothing after the state stopped.
    void ReportStatus(const std::function<void(CServiceStatus&)>& change);
    void ReportState(ServiceState state, std::uint32_t accepted, std::uint32_t exitCode,
                     std::chrono::milliseconds waitHint);
    void ReportStateAgain();
    void AdvanceCheckPoint(CServiceStatus& status);

    const std::wstring m_serviceName;
    const std::wstring m_displayName;
    const CHost m_host;

    // Made at the beginning of the application's own work, for the main thread to destroy:
    std::shared_ptr<CEvent> m_close;  ///< manual: the user is done, or the work has ended
    std::unique_ptr<CThreadSet> m_threads;
    std::unique_ptr<CWorkItems> m_work;
    bool m_isStartedInDebugMode = false;
    bool m_isRefused = false;  ///< a parameter is not known

    CMutex m_lock{LockRank::ServiceStatus};  // guards what follows, and keeps reports in order
    CServiceStatus m_status{.state = ServiceState::StartPending};
    std::uint32_t m_checkPoints = 0;
    CStatus m_failure;
};

/// What a service's command line asks for.
class CWinService::CServiceCommandLineInfo final : public CCommandLineInfo {
 public:
    explicit CServiceCommandLineInfo(bool isStartedByManager) noexcept
        : m_runsUnderManager(isStartedByManager) {}

    void ParseParam(std::wstring_view parameter, bool isFlag, bool isLast) override;

    bool RunsUnderManager() const noexcept { return m_runsUnderManager; }
    bool IsDebug() const noexcept { return m_isDebug; }
    /// The first parameter that is not known, without its "-" or "/".
    const std::wstring& InvalidParameter() const noexcept { return m_invalidParameter; }

 private:
    bool ParseFlag(std::wstring_view flag);

    bool m_runsUnderManager;
    bool m_isDebug = false;
    bool m_hasInvalidParameter = false;  // which may be an empty one
    std::wstring m_invalidParameter;
};

/// What is said of a parameter that is not known.
std::wstring InvalidParameterText(const std::wstring& parameter);

}  // namespace quorbel
