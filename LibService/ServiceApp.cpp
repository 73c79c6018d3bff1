#include "LibService/ServiceApp.h"

#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"

namespace quorbel {

/// Ends the main work whichever way it is left.
class CServiceApp::CEndOfMainWork {
 public:
    explicit CEndOfMainWork(CServiceApp& service) noexcept : m_service(service) {}
    ~CEndOfMainWork() { m_service.EndMainWork(m_status); }
    CEndOfMainWork(const CEndOfMainWork&) = delete;
    CEndOfMainWork& operator=(const CEndOfMainWork&) = delete;

    void Is(CStatus status) { m_status = std::move(status); }

 private:
    CServiceApp& m_service;
    // What is left by an exception has failed.
    CStatus m_status = SystemError(ErrorCode::InternalError);
};

CServiceApp::CServiceApp(std::wstring serviceName, std::wstring displayName,
                         std::vector<std::wstring> parameters, CHost host, CTraceLogger& trace, CItems items)
    : CWinService(std::move(serviceName), std::move(displayName), std::move(parameters), std::move(host)),
      m_trace(trace),
      m_items(std::move(items)) {}

CStatus CServiceApp::Start() {
    m_trace.Trace(*this, trace::kServiceStart);
    CEventLog::Instance().ReportMessage(message::kServiceStarted, {DisplayName()});
    CStatus status = Work().Run(
        [this](CEvent&) {
            CEndOfMainWork end(*this);
            end.Is(RunMainWork());
            return CStatus();
        },
        "MainThread");
    if (status.IsOk()) return status;
    m_trace.Trace(*this, trace::kMainThreadFailed);
    Stop();
    Wait(std::nullopt);
    return status;
}

CStatus CServiceApp::RunMainWork() try {
    if (m_items.apiServer) {
        const auto serve = [this](CEvent& stop) { return m_items.apiServer(*this, stop); };
        RETURN_IF_FAILED(Work().Run(serve, "APIServer"));
    }
    m_trace.Trace(*this, trace::kRunRoutine);
    return Run();
} catch (const std::exception& exception) {
    return MessageError(message::kCaughtException, exception);
}

void CServiceApp::EndMainWork(const CStatus& status) {
    status.Report();
    m_exitCode = status.IsOk() ? 0 : status.Error()->GetCode();
    // Before the work counts as ended: whoever waits for that may then destroy the service.
    if (!status.IsOk()) {
        Fail(status);
        Stop();
    }
    NoteEndOfWork();
}

void CServiceApp::Stop() {
    if (m_isStopping.exchange(true)) return;
    CEventLog::Instance().ReportMessage(message::kServiceStopping, {DisplayName()});
    m_trace.Trace(*this, trace::kServiceStop);
    Work().Stop();
}

std::uint32_t CServiceApp::Wait(std::optional<std::chrono::milliseconds> timeout) {
    if (timeout) {
        WaitUntilSet(Work().NoWorkRunning(), *timeout);
    } else {
        Work().Wait();
    }
    return m_exitCode;
}

bool CServiceApp::IsRunning() const {
    return !Work().NoWorkRunning().Test();
}

CStatus CServiceApp::StartApiConnection(const CWorkItems::Work& serve) {
    return Work().Run(serve, "APIConnection");
}

}  // namespace quorbel
