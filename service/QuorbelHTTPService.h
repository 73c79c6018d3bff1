#pragma once

#include <memory>
#include <string>

#include "http/HTTPServer.h"

namespace quorbel {

/// The service: it builds every configured host, then applies changes of the configuration tree, host by
/// host, until it is asked to stop.
class CQuorbelHTTPService final : public CHTTPServer {
 public:
    static constexpr const wchar_t* kServiceName = L"QBHTTPService";
    static constexpr const wchar_t* kDisplayName = L"Quorbel HTTP Service";

    /// `localMachine` and what the environment refers to outlive the service. The service stops when `stop`
    /// is set.
    CQuorbelHTTPService(const Environment& environment, IKey& localMachine, std::shared_ptr<CEvent> stop)
        : CHTTPServer(environment),
          m_localMachine(localMachine),
          m_clock(environment.clock),
          m_stop(std::move(stop)) {}

    /// The service's working life; returns when it was stopped or could not go on. Errors: message 0xC00100CE
    /// without a configuration tree, that of the first host that cannot be built at start, and system errors.
    CStatus Run();

 private:
    struct Keys;
    struct Watches;
    CStatus OpenKeys(Keys& keys) const;
    CStatus Serve(Keys& keys, const Watches& watches);
    CStatus RebuildChangedHosts(const CRegistryKey& hosts);

    IKey& m_localMachine;
    IClock& m_clock;
    const std::shared_ptr<CEvent> m_stop;
};

}  // namespace quorbel
