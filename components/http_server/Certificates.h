#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "components/http_server/Tls.h"
#include "platform/Lock.h"
#include "platform/registry/Key.h"

namespace quorbel {

/// The certificates that are bound to hosts: the subkeys <host>:<port> of
/// SYSTEM\CurrentControlSet\Services\HTTP\Parameters\SslBindingInfo with the text values "CertificateFile" and
/// "PrivateKeyFile" (PEM). Host names compare without regard to case. Safe to use from any thread.
class CCertificates {
 public:
    /// `report` is told, in a sentence, of a certificate that could not be read again; once for each state of its
    /// files.
    CCertificates(std::shared_ptr<IKey> localMachine, std::function<void(const std::wstring&)> report);

    /// A host's certificate while it is followed: what it holds changes when files or binding do.
    class CBinding;
    /// Starts to follow the binding of `host`:`port`; when there is none, or its certificate cannot be read, null,
    /// and `reason` says what is wrong and, without a binding, how to make one (qbctl cert bind).
    std::shared_ptr<const CBinding> Follow(const std::string& host, int port, std::wstring& reason);
    /// The certificate to show now.
    static std::shared_ptr<const CTlsCertificate> Current(const CBinding& binding);

    /// Reads again every followed binding whose values, or whose files' stamps, have changed. A certificate that
    /// cannot be read is reported, and the last good one stays.
    void Refresh();
};

}  // namespace quorbel
