#include "tests/support/service/TlsClient.h"

#include <stdexcept>

namespace quorbel {

namespace {

void RequireSetUp(bool succeeded) {
    if (!succeeded) throw std::runtime_error("the TLS client cannot be set up: " + ToUtf8(OpenSslReason()));
}

}  // namespace

CTlsClient::CTlsClient(const CTlsClientOptions& options)
    : m_context(SSL_CTX_new(TLS_client_method())), m_ssl(SSL_new(m_context.get())) {
    SSL* ssl = m_ssl.get();
    SSL_set_bio(ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_connect_state(ssl);
    // So that it also offers what a server has to refuse.
    SSL_set_security_level(ssl, 0);
    RequireSetUp(SSL_set_min_proto_version(ssl, options.version) == 1);
    RequireSetUp(SSL_set_max_proto_version(ssl, options.version) == 1);
    RequireSetUp(!options.ciphers || SSL_set_cipher_list(ssl, options.ciphers) == 1);
    RequireSetUp(!options.groups || SSL_set1_groups_list(ssl, options.groups) == 1);
    RequireSetUp(options.name.empty() || SSL_set_tlsext_host_name(ssl, options.name.c_str()) == 1);
    RequireSetUp(!options.session || SSL_set_session(ssl, options.session) == 1);
    const auto* protocols = reinterpret_cast<const unsigned char*>(options.protocols.data());
    RequireSetUp(SSL_set_alpn_protos(ssl, protocols, static_cast<unsigned>(options.protocols.size())) == 0);
}

bool CTlsClient::Take(std::string_view bytes) {
    if (!bytes.empty())
        RequireSetUp(BIO_write(SSL_get_rbio(m_ssl.get()), bytes.data(), static_cast<int>(bytes.size())) > 0);
    ERR_clear_error();
    char buffer[4096];
    std::size_t count = 0;
    int result = 0;
    while ((result = SSL_read_ex(m_ssl.get(), buffer, sizeof(buffer), &count)) == 1)
        m_received.append(buffer, count);
    const int error = SSL_get_error(m_ssl.get(), result);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_ZERO_RETURN) return true;
    const int reason = ERR_GET_REASON(ERR_peek_error());
    if (reason > SSL_AD_REASON_OFFSET) m_alert = reason - SSL_AD_REASON_OFFSET;
    return false;
}

std::string CTlsClient::Output() {
    std::string output;
    char buffer[4096];
    int count = 0;
    while ((count = BIO_read(SSL_get_wbio(m_ssl.get()), buffer, sizeof(buffer))) > 0)
        output.append(buffer, static_cast<std::size_t>(count));
    return output;
}

void CTlsClient::Send(std::string_view plain) {
    std::size_t written = 0;
    RequireSetUp(SSL_write_ex(m_ssl.get(), plain.data(), plain.size(), &written) == 1);
}

void CTlsClient::Renegotiate() {
    RequireSetUp(SSL_renegotiate(m_ssl.get()) == 1);
    Ignore(SSL_do_handshake(m_ssl.get()));
}

}  // namespace quorbel
