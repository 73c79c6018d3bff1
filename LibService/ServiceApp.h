#pragma once

#include <atomic>
#include <functional>

#include "LibService/WinService.h"

namespace quorbel {

/// A service whose work is one routine, beside which connections to its API are served.
class CServiceApp : public CWinService {
 public:
    /// Work items beside the routine, each ended by the service's stop event; empty ones are left out.
    struct CItems {
        /// Accepts connections to the service's API and has each served (StartApiConnection) until `stop` is
        /// set.
        std::function<CStatus(CServiceApp& service, CEvent& stop)> apiServer;
    };

    /// `trace` outlives the object.
    CServiceApp(std::wstring serviceName, std::wstring displayName, std::vector<std::wstring> parameters,
                CHost host, CTraceLogger& trace, CItems items);

    CStatus Start() override;
    void Stop() override;
    std::uint32_t Wait(std::optional<std::chrono::milliseconds> timeout) override;
    bool IsRunning() const override;
    CStatus StartApiConnection(const CWorkItems::Work& serve) override;

    /// The service's working life, on the thread "MainThread"; ends when the stop event is set, or with an
    /// error, which ends the service.
    virtual CStatus Run() = 0;

    const char* TraceName() const override { return "Service"; }

 protected:
    /// Manual; set by Stop.
    const std::shared_ptr<CEvent>& StopEvent() const noexcept { return Work().StopEvent(); }

 private:
    class CEndOfMainWork;
    CStatus RunMainWork();
    void EndMainWork(const CStatus& status);

    CTraceLogger& m_trace;
    const CItems m_items;
    std::atomic<bool> m_isStopping = false;
    std::atomic<std::uint32_t> m_exitCode = 0;
};

}  // namespace quorbel
