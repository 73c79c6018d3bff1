#pragma once

#include <functional>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>

namespace quorbel {

/// A certificate chain with its private key, ready to be shown to clients. Immutable; shared by connections.
class CTlsCertificate {
 public:
    /// Reads both PEM files; on failure nothing is returned and `reason` says in a sentence which file is wrong
    /// and how (unreadable, no certificate in it, key does not belong to the certificate, ...).
    static std::shared_ptr<const CTlsCertificate> Load(const std::string& certificateFile,
                                                       const std::string& privateKeyFile,
                                                       std::wstring& reason);
    ~CTlsCertificate();

    SSL_CTX* Context() const noexcept { return m_context; }

 private:
    explicit CTlsCertificate(SSL_CTX* context) noexcept : m_context(context) {}
    SSL_CTX* const m_context;
};

/// What all TLS connections of a server share: protocol versions (1.2 and 1.3), cipher suites, and the keys by
/// which a session is resumed (RFC 5077, RFC 8446 section 2.2), which outlive any certificate. Safe to use from
/// any thread.
class CTlsServer {
 public:
    /// Throws std::runtime_error when OpenSSL cannot be set up.
    CTlsServer();
    ~CTlsServer();
    CTlsServer(const CTlsServer&) = delete;
    CTlsServer& operator=(const CTlsServer&) = delete;

    SSL_CTX* Context() const noexcept { return m_context; }

 private:
    SSL_CTX* m_context;
};

/// One connection's TLS, as a transformation of bytes: it owns no socket. Used by one thread at a time.
class CTlsChannel {
 public:
    /// Chooses the certificate for a server name (RFC 6066, section 3; lower case, empty when the client names
    /// none). Called once during a handshake; null ends it with the alert unrecognized_name.
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

    /// Takes bytes from the peer and appends what they decrypt to to `plain`; what is to be sent to the peer
    /// (handshake, tickets, alerts) is appended to `output`.
    Status Receive(std::string_view bytes, std::string& plain, std::string& output);
    /// Appends `plain`, encrypted, to `output`; only once established. False after a failure.
    bool Send(std::string_view plain, std::string& output);
    /// Appends close_notify to `output`.
    void Close(std::string& output);

    bool IsEstablished() const noexcept { return m_isEstablished; }
    bool IsResumed() const noexcept;
    /// The server name that the client asked for, lower case; empty for none.
    const std::string& ServerName() const noexcept { return m_serverName; }
    /// The protocol agreed on by ALPN (RFC 7301): "http/1.1", or empty when the client did not ask.
    std::string_view ApplicationProtocol() const noexcept;

 private:
    SSL* m_ssl = nullptr;
    Choose m_choose;
    std::shared_ptr<const CTlsCertificate> m_certificate;
    std::string m_serverName;
    bool m_isEstablished = false;
};

}  // namespace quorbel
