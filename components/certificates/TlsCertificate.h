#pragma once

#include <memory>
#include <openssl/ssl.h>
#include <string>

#include "components/certificates/OpenSsl.h"

namespace quorbel {

/// A certificate chain with its private key, ready to be shown to clients. Immutable; shared by connections
/// and safe to use from any thread.
class CTlsCertificate {
 public:
    /// Reads both PEM files (absolute paths in UTF-8; at most 1 MiB each). The first certificate is the
    /// server's, those after it are sent along; the key has no passphrase. On failure nothing is returned and
    /// `reason` says in a sentence which file is wrong and how (unreadable, no certificate in it, key does
    /// not belong to the certificate, ...).
    static std::shared_ptr<const CTlsCertificate> Load(const std::string& certificateFile,
                                                       const std::string& privateKeyFile,
                                                       std::wstring& reason);

    /// Gives chain and key to a connection, which keeps references of its own.
    bool GiveTo(SSL* connection) const noexcept;

    /// The server's own certificate.
    X509* Leaf() const noexcept { return m_leaf.get(); }

 private:
    CTlsCertificate() = default;

    CX509Pointer m_leaf;
    CX509ChainPointer m_chain;  ///< the certificates after the first
    CKeyPointer m_key;
};

}  // namespace quorbel
