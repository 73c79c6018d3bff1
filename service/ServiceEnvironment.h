#pragma once

#include <filesystem>
#include <memory>

#include "LibService/CrashReports.h"
#include "LibService/ServiceLogger.h"
#include "LibService/ServicePreparation.h"
#include "LibService/TraceSettings.h"
#include "platform/Text.h"
#include "platform/registry/Key.h"
#include "service/QuorbelHTTPService.h"

namespace quorbel {

/// What the service's work stands on and what reports of it: the root folder, the event log, the registry and
/// the trace logger.
class CServiceEnvironment final : public IServicePreparation {
 public:
    CStatus OpenEventLog(EventDisplay display) override;
    CStatus RegisterEventSource() override;
    CStatus SetUpTracing() override;

    CServiceLogger& Trace() noexcept { return m_trace; }
    const CServiceLogger& Trace() const noexcept { return m_trace; }
    /// From SetUpTracing on.
    const CTraceSettings& TraceSettings() const noexcept { return m_traceSettings; }

    // From RegisterEventSource on:
    const std::filesystem::path& Root() const noexcept { return m_root; }
    IRegistry& Registry() const noexcept { return *m_registry; }
    const std::shared_ptr<IKey>& LocalMachine() const noexcept { return m_localMachine; }

 private:
    CStatus StartTracing();
    CStatus StartCrashReports();
    void EchoToTerminal();

    CServiceLogger m_trace{ToUtf8(CQuorbelHTTPService::kServiceName)};
    CTraceSettings m_traceSettings;
    std::unique_ptr<CCrashReports> m_crashReports;  // uses the logger
    std::filesystem::path m_root;                   // empty until it is known
    std::shared_ptr<IRegistry> m_registry;
    std::shared_ptr<IKey> m_localMachine;
};

}  // namespace quorbel
