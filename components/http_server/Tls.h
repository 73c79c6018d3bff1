#pragma once

#include <functional>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>

#include "components/certificates/TlsCertificate.h"

namespace quorbel {

/// What all TLS connections of a server share: protocol versions (1.2 and 1.3), cipher suites, and the keys
/// by which a session is resumed (RFC 5077, RFC 8446 section 2.2), which outlive any certificate. Safe to use
/// from any thread.
class CTlsServer {
 public:
    /// Throws std::runtime_error when OpenSSL cannot be set up.
    CTlsServer();
    ~CTlsServer();
    CTlsServer(const CTlsServer&) = delete;
    CTlsServer& operator=(const CTlsServer&) = delete;

    SSL_CTX* Context() const noexcept { return m_context; }

 private:
    SSL_CTX* const m_context;
};

/// One connection's TLS, as a transformation of bytes: it owns no socket. Used by one thread at a time. It
/// may outlive the server it was made with. Without memory for its set-up it has failed from the start.
class CTlsChannel {
 public:
    /// Chooses the certificate for a server name (RFC 6066, section 3; lower case, without a dot at the end,
    /// empty when the client names none). Called once during a handshake, then dropped; null ends the
    /// handshake with the alert unrecognized_name. A session is resumed under the name only that it began
    /// with.
    using Choose = std::function<std::shared_ptr<const CTlsCertificate>(std::string_view serverName)>;

    enum class Status {
        Open,    ///< handshaking or established: more may come
        Closed,  ///< the peer said that it sends no more (close_notify)
        Failed   ///< the peer broke the protocol or sent what cannot be decrypted; `output` may hold an alert
    };

    CTlsChannel(const CTlsServer& server, Choose choose);
    ~CTlsChannel();
    CTlsChannel(const CTlsChannel&) = delete;
    CTlsChannel& operator=(const CTlsChannel&) = delete;

    /// Takes all of `bytes` from the peer and appends what they decrypt to to `plain`; what is to be sent to
    /// the peer (handshake, tickets, alerts) is appended to `output`. What came before an end or a failure is
    /// in `plain` all the same; what comes after it is dropped.
    Status Receive(std::string_view bytes, std::string& plain, std::string& output);
    /// Appends `plain`, encrypted, to `output`; only once established. False after a failure or Close.
    bool Send(std::string_view plain, std::string& output);
    /// Appends close_notify to `output`, once and only when established. Receiving may go on.
    void Close(std::string& output);

    bool IsEstablished() const noexcept { return m_isEstablished; }
    bool IsResumed() const noexcept;
    /// The server name that the client asked for, lower case, without a dot at the end; empty for none.
    const std::string& ServerName() const noexcept { return m_serverName; }
    /// The protocol agreed on by ALPN (RFC 7301): "http/1.1", or empty when the client did not ask.
    std::string_view ApplicationProtocol() const noexcept;

 private:
    friend class CTlsServer;
    class CTransfer;

    static const BIO_METHOD* BioMethod();
    static int ReadBio(BIO* bio, char* buffer, std::size_t size, std::size_t* count);
    static int WriteBio(BIO* bio, const char* bytes, std::size_t size, std::size_t* count);
    static int OnClientHello(SSL* ssl, int* alert, void*);
    bool TakeServerName(const std::string& name, int& alert);
    /// Whether bytes can be sent.
    bool IsWritable() const noexcept;

    SSL* m_ssl = nullptr;
    Choose m_choose;
    std::string m_serverName;
    std::string_view m_input;         ///< what OpenSSL has yet to read of the bytes given to Receive
    std::string* m_output = nullptr;  ///< where OpenSSL writes to, during a call
    bool m_isEstablished = false;
    bool m_hasFailed = false;
};

}  // namespace quorbel
