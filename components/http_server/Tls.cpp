#include "components/http_server/Tls.h"

#include <algorithm>
#include <openssl/evp.h>
#include <openssl/tls1.h>
#include <optional>
#include <stdexcept>
#include <utility>

namespace quorbel {

namespace {

// Of TLS 1.2 only what has forward secrecy and authenticated encryption.
constexpr const char* kCiphers12 =
    "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:ECDHE-ECDSA-AES256-GCM-SHA384:"
    "ECDHE-RSA-AES256-GCM-SHA384:ECDHE-ECDSA-CHACHA20-POLY1305:ECDHE-RSA-CHACHA20-POLY1305";

constexpr std::string_view kProtocol = "http/1.1";

constexpr std::size_t kLargestRecord = 16 * 1024;
/// What a record adds to its content: header, nonce, tag and type, rounded up.
constexpr std::size_t kRecordOverhead = 32;

/// Takes the number of bytes that `size` gives (1 or 2 of them) off the front of `rest`, then so many bytes.
std::optional<std::string_view> TakeVector(std::string_view& rest, std::size_t size) {
    if (rest.size() < size) return std::nullopt;
    std::size_t length = 0;
    for (std::size_t i = 0; i < size; ++i) length = length << 8 | static_cast<unsigned char>(rest[i]);
    if (rest.size() - size < length) return std::nullopt;
    const std::string_view vector = rest.substr(size, length);
    rest.remove_prefix(size + length);
    return vector;
}

/// The name in a server_name extension, as it was sent; none when the extension is malformed. There is one
/// name of one type, all else is malformed (RFC 6066, section 3).
std::optional<std::string_view> ParseServerName(std::string_view extension) {
    auto list = TakeVector(extension, 2);
    if (!list || !extension.empty() || list->empty() || list->front() != TLSEXT_NAMETYPE_host_name)
        return std::nullopt;
    list->remove_prefix(1);
    const auto name = TakeVector(*list, 2);
    return name && list->empty() ? name : std::nullopt;
}

bool IsLabelCharacter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') ||
           character == '-' || character == '_';
}

/// The name in lower case, without a dot at its end; none when it cannot be a host's (RFC 1123, and "_").
std::optional<std::string> NormalizeServerName(std::string_view sent) {
    if (sent.ends_with('.')) sent.remove_suffix(1);
    if (sent.empty() || sent.size() > 253) return std::nullopt;
    std::string name(sent);
    std::size_t label = 0;
    for (char& character : name) {
        if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
        if (character == '.' ? label == 0 : !IsLabelCharacter(character)) return std::nullopt;
        label = character == '.' ? 0 : label + 1;
        if (label > 63) return std::nullopt;
    }
    return label == 0 ? std::nullopt : std::optional(std::move(name));
}

/// The normalized server name of the ClientHello being processed, empty when it has none; none, and the
/// alert, when it cannot be accepted.
std::optional<std::string> ReadServerName(SSL* ssl, int& alert) {
    const unsigned char* data = nullptr;
    std::size_t size = 0;
    if (SSL_client_hello_get0_ext(ssl, TLSEXT_TYPE_server_name, &data, &size) != 1) return std::string();
    const auto sent = ParseServerName({reinterpret_cast<const char*>(data), size});
    alert = sent ? SSL_AD_UNRECOGNIZED_NAME : SSL_AD_DECODE_ERROR;
    return sent ? NormalizeServerName(*sent) : std::nullopt;
}

/// Binds sessions to the name they began with: one of another name is not resumed (RFC 6066, section 3).
bool SetSessionContext(SSL* ssl, const std::string& name) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    return EVP_Digest(name.data(), name.size(), digest, &size, EVP_sha256(), nullptr) == 1 &&
           SSL_set_session_id_context(ssl, digest, size) == 1;
}

int SelectProtocol(SSL*, const unsigned char** selected, unsigned char* size, const unsigned char* offered,
                   unsigned int offeredSize, void*) {
    std::string_view rest(reinterpret_cast<const char*>(offered), offeredSize);
    while (const auto protocol = TakeVector(rest, 1)) {
        if (*protocol != kProtocol) continue;
        *selected = reinterpret_cast<const unsigned char*>(protocol->data());
        *size = static_cast<unsigned char>(protocol->size());
        return SSL_TLSEXT_ERR_OK;
    }
    return SSL_TLSEXT_ERR_ALERT_FATAL;
}

/// The name was accepted when the ClientHello was looked at; this only has the reply say so.
int AcknowledgeServerName(SSL*, int*, void*) {
    return SSL_TLSEXT_ERR_OK;
}

long ControlBio(BIO*, int command, long, void*) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

}  // namespace

CTlsServer::CTlsServer() : m_context(SSL_CTX_new(TLS_server_method())) {
    if (!m_context || SSL_CTX_set_min_proto_version(m_context, TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_max_proto_version(m_context, TLS1_3_VERSION) != 1 ||
        SSL_CTX_set_cipher_list(m_context, kCiphers12) != 1) {
        SSL_CTX_free(m_context);
        throw std::runtime_error("TLS cannot be set up");
    }
    SSL_CTX_set_options(m_context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    // Chains are sent as their files have them; looking for more would cost every handshake a search.
    SSL_CTX_set_mode(m_context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_NO_AUTO_CHAIN);
    // Sessions live in the clients' tickets alone, and no byte is taken before the record it belongs to is
    // due.
    SSL_CTX_set_session_cache_mode(m_context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_read_ahead(m_context, 0);
    SSL_CTX_set_client_hello_cb(m_context, CTlsChannel::OnClientHello, nullptr);
    SSL_CTX_set_tlsext_servername_callback(m_context, AcknowledgeServerName);
    SSL_CTX_set_alpn_select_cb(m_context, SelectProtocol, nullptr);
}

CTlsServer::~CTlsServer() {
    SSL_CTX_free(m_context);
}

/// For the length of one call: lends its input and output to OpenSSL, and clears this thread's errors, by
/// which OpenSSL would judge the call.
class CTlsChannel::CTransfer {
 public:
    CTransfer(CTlsChannel& channel, std::string_view input, std::string& output) : m_channel(channel) {
        m_channel.m_input = input;
        m_channel.m_output = &output;
        ERR_clear_error();
    }
    ~CTransfer() {
        m_channel.m_input = {};
        m_channel.m_output = nullptr;
        ERR_clear_error();
    }
    CTransfer(const CTransfer&) = delete;
    CTransfer& operator=(const CTransfer&) = delete;

 private:
    CTlsChannel& m_channel;
};

const BIO_METHOD* CTlsChannel::BioMethod() {
    static const BIO_METHOD* const method = [] {
        BIO_METHOD* created = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "TLS channel");
        if (!created) return created;
        BIO_meth_set_read_ex(created, ReadBio);
        BIO_meth_set_write_ex(created, WriteBio);
        BIO_meth_set_ctrl(created, ControlBio);
        return created;
    }();
    return method;
}

int CTlsChannel::ReadBio(BIO* bio, char* buffer, std::size_t size, std::size_t* count) {
    std::string_view& input = static_cast<CTlsChannel*>(BIO_get_data(bio))->m_input;
    BIO_clear_retry_flags(bio);
    if (input.empty()) {
        BIO_set_retry_read(bio);
        return -1;
    }
    *count = input.copy(buffer, size);
    input.remove_prefix(*count);
    return 1;
}

int CTlsChannel::WriteBio(BIO* bio, const char* bytes, std::size_t size, std::size_t* count) {
    std::string* output = static_cast<CTlsChannel*>(BIO_get_data(bio))->m_output;
    BIO_clear_retry_flags(bio);
    if (!output) return -1;
    try {
        output->append(bytes, size);
    } catch (...) {  // no exception may cross OpenSSL's frames
        return -1;
    }
    *count = size;
    return 1;
}

bool CTlsChannel::TakeServerName(const std::string& name, int& alert) {
    // A second ClientHello answers a HelloRetryRequest and must be like the first.
    if (!m_choose) {
        alert = SSL_AD_ILLEGAL_PARAMETER;
        return name == m_serverName;
    }
    m_serverName = name;
    const std::shared_ptr<const CTlsCertificate> certificate = std::exchange(m_choose, nullptr)(name);
    alert = certificate ? SSL_AD_INTERNAL_ERROR : SSL_AD_UNRECOGNIZED_NAME;
    return certificate && certificate->GiveTo(m_ssl) && SetSessionContext(m_ssl, name);
}

int CTlsChannel::OnClientHello(SSL* ssl, int* alert, void*) {
    try {
        auto& channel = *static_cast<CTlsChannel*>(BIO_get_data(SSL_get_rbio(ssl)));
        const auto name = ReadServerName(ssl, *alert);
        return name && channel.TakeServerName(*name, *alert) ? SSL_CLIENT_HELLO_SUCCESS
                                                             : SSL_CLIENT_HELLO_ERROR;
    } catch (...) {  // no exception may cross OpenSSL's frames
        *alert = SSL_AD_INTERNAL_ERROR;
        return SSL_CLIENT_HELLO_ERROR;
    }
}

CTlsChannel::CTlsChannel(const CTlsServer& server, Choose choose) : m_choose(std::move(choose)) {
    const BIO_METHOD* method = BioMethod();
    BIO* bio = method ? BIO_new(method) : nullptr;
    m_ssl = bio ? SSL_new(server.Context()) : nullptr;
    m_hasFailed = !m_ssl;
    if (m_hasFailed) {
        BIO_free(bio);
        ERR_clear_error();
        return;
    }
    BIO_set_data(bio, this);
    BIO_set_init(bio, 1);
    SSL_set_bio(m_ssl, bio, bio);
    SSL_set_accept_state(m_ssl);
}

CTlsChannel::~CTlsChannel() {
    SSL_free(m_ssl);
}

CTlsChannel::Status CTlsChannel::Receive(std::string_view bytes, std::string& plain, std::string& output) {
    if (m_hasFailed) return Status::Failed;
    const CTransfer transfer(*this, bytes, output);
    for (;;) {
        char buffer[kLargestRecord];
        std::size_t count = 0;
        const int result = SSL_read_ex(m_ssl, buffer, sizeof(buffer), &count);
        m_isEstablished = m_isEstablished || SSL_is_init_finished(m_ssl) == 1;
        if (result == 1) {
            plain.append(buffer, count);
            if (m_input.empty() && SSL_has_pending(m_ssl) == 0) return Status::Open;
            continue;
        }
        const int error = SSL_get_error(m_ssl, result);
        if (error == SSL_ERROR_WANT_READ) return Status::Open;
        if (error == SSL_ERROR_ZERO_RETURN) return Status::Closed;
        m_hasFailed = true;
        return Status::Failed;
    }
}

bool CTlsChannel::IsWritable() const noexcept {
    return m_isEstablished && !m_hasFailed && (SSL_get_shutdown(m_ssl) & SSL_SENT_SHUTDOWN) == 0;
}

bool CTlsChannel::Send(std::string_view plain, std::string& output) {
    if (!IsWritable()) return false;
    if (plain.empty()) return true;
    output.reserve(output.size() + plain.size() + (plain.size() / kLargestRecord + 1) * kRecordOverhead);
    const CTransfer transfer(*this, {}, output);
    std::size_t written = 0;
    m_hasFailed = SSL_write_ex(m_ssl, plain.data(), plain.size(), &written) != 1;
    return !m_hasFailed;
}

void CTlsChannel::Close(std::string& output) {
    if (!IsWritable()) return;
    const CTransfer transfer(*this, {}, output);
    m_hasFailed = SSL_shutdown(m_ssl) < 0;
}

bool CTlsChannel::IsResumed() const noexcept {
    return m_ssl && SSL_session_reused(m_ssl) == 1;
}

std::string_view CTlsChannel::ApplicationProtocol() const noexcept {
    const unsigned char* protocol = nullptr;
    unsigned int size = 0;
    if (m_ssl) SSL_get0_alpn_selected(m_ssl, &protocol, &size);
    return {reinterpret_cast<const char*>(protocol), size};
}

}  // namespace quorbel
