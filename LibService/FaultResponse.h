#pragma once

#include <atomic>

#include "LibService/Status.h"
#include "platform/fault/Faults.h"

namespace quorbel {

class CCrashReports;

/// What the service does about faults: crash reports once they are set up, exceptions with the fault's text,
/// and events. One per process, to its end.
class CFaultResponse final : public IFaultResponse {
 public:
    static CFaultResponse& Instance();

    /// From here on faults are handled, without crash reports. The main thread calls it before it starts
    /// others.
    CStatus SetUp();
    /// Who writes crash reports; null for nobody any more.
    void SetReports(CCrashReports* reports) noexcept { m_reports = reports; }

    void WriteReport(const CFaultRecord* fault, Wait wait) noexcept override;
    void Throw(const CFaultRecord* fault) override;
    void WriteLastWords(const CFaultRecord& fault) noexcept override;
    void WriteLastWords(std::string_view text) noexcept override;
    void OnCaught(const CException& exception, const std::source_location& where) noexcept override;

 private:
    CFaultResponse() = default;

    std::atomic<CCrashReports*> m_reports = nullptr;
};

}  // namespace quorbel
