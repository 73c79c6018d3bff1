#pragma once

#include <openssl/x509.h>
#include <string>

#include "components/certificates/CertificateBinding.h"
#include "tools/qbctl/HostArgument.h"
#include "tools/qbctl/Terminal.h"

namespace quorbel {

/// Checks that the files belong together, binds them to the host and port, and says so and what is doubtful
/// about the certificate. Nothing is bound unless it gives Success.
ExitCode BindCertificate(const CHostArgument& target, const CCertificateFiles& files);

/// What clients of that host would find wrong with a certificate, in a sentence; empty for nothing.
std::wstring CertificateWarning(X509* certificate, const std::wstring& host);

}  // namespace quorbel
