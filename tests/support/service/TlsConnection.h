#pragma once

#include "tests/support/service/HttpConnection.h"
#include "tests/support/service/TlsClient.h"

namespace quorbel {

/// A client connection over TLS that sends exactly the bytes it is given. Not connected when nobody listens
/// or the handshake fails.
class CTlsConnection final : public CHttpConnection {
 public:
    explicit CTlsConnection(int port, const CTlsClientOptions& options, const char* address = "127.0.0.1");

    bool IsEstablished() const { return m_client.IsEstablished(); }
    bool Send(std::string_view bytes) override;
    /// Sends, together with the word that nothing more will come.
    bool SendLast(std::string_view bytes);
    const CTlsClient& Tls() const noexcept { return m_client; }
    /// The name that the certificate shown is for.
    std::string ShownName() const;

 protected:
    bool Fill() override;

 private:
    bool Flush() { return CHttpConnection::Send(m_client.Output()); }
    CTlsClient m_client;
    std::size_t m_taken = 0;
};

}  // namespace quorbel
