#include "tests/support/service/TlsConnection.h"

#include <array>
#include <openssl/x509.h>

namespace quorbel {

CTlsConnection::CTlsConnection(int port, const CTlsClientOptions& options, const char* address)
    : CHttpConnection(port, address), m_client(options) {
    Ignore(m_client.Take({}));
    while (!m_client.IsEstablished() && Flush()) {
        std::string bytes;
        if (!FillWith(bytes) || !m_client.Take(bytes)) break;
    }
    Ignore(Flush());
}

bool CTlsConnection::Send(std::string_view bytes) {
    m_client.Send(bytes);
    return Flush();
}

bool CTlsConnection::SendLast(std::string_view bytes) {
    m_client.Send(bytes);
    m_client.Close();
    return Flush();
}

bool CTlsConnection::Fill() {
    std::string bytes;
    while (m_client.Received().size() == m_taken) {
        bytes.clear();
        if (!FillWith(bytes) || !m_client.Take(bytes)) return false;
    }
    m_received.append(m_client.Received(), m_taken);
    m_taken = m_client.Received().size();
    return true;
}

std::string CTlsConnection::ShownName() const {
    X509* const certificate = SSL_get0_peer_certificate(m_client.Connection());
    if (!certificate) return "(none)";
    std::array<char, 256> name{};
    ::X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name.data(), name.size());
    return name.data();
}

}  // namespace quorbel
