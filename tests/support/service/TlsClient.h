#pragma once

#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>

#include "components/certificates/OpenSsl.h"
#include "platform/Error.h"

namespace quorbel {

using CSessionPointer = std::unique_ptr<SSL_SESSION, COpenSslFree<SSL_SESSION_free>>;

/// How a client begins; what is left as it is asks for nothing special.
struct CTlsClientOptions {
    int version = 0;                ///< the only version that it speaks; 0 for all
    std::string name = {};          ///< server name; none when empty
    std::string protocols = {};     ///< for ALPN, each after its length in a byte
    const char* ciphers = nullptr;  ///< of TLS 1.2
    const char* groups = nullptr;
    SSL_SESSION* session = nullptr;  ///< to resume
};

/// A TLS client of its own, over bytes in memory. It checks no certificate.
class CTlsClient {
 public:
    explicit CTlsClient(const CTlsClientOptions& options);

    /// Handshakes on, or reads, with what the server has sent; false after a failure.
    bool Take(std::string_view bytes);
    /// What is to be sent to the server since the last call.
    std::string Output();
    void Send(std::string_view plain);
    void Close() { Ignore(SSL_shutdown(m_ssl.get())); }
    void Renegotiate();

    bool IsEstablished() const { return SSL_is_init_finished(m_ssl.get()) == 1; }
    bool IsClosed() const { return (SSL_get_shutdown(m_ssl.get()) & SSL_RECEIVED_SHUTDOWN) != 0; }
    /// The alert that ended it, or 0.
    int Alert() const noexcept { return m_alert; }
    const std::string& Received() const noexcept { return m_received; }
    SSL* Connection() const noexcept { return m_ssl.get(); }
    CSessionPointer Session() const { return CSessionPointer(SSL_get1_session(m_ssl.get())); }

 private:
    const std::unique_ptr<SSL_CTX, COpenSslFree<SSL_CTX_free>> m_context;
    const std::unique_ptr<SSL, COpenSslFree<SSL_free>> m_ssl;
    std::string m_received;
    int m_alert = 0;
};

}  // namespace quorbel
