#include "components/certificates/TlsCertificate.h"

#include <openssl/crypto.h>
#include <openssl/pem.h>

#include "platform/File.h"

namespace quorbel {

namespace {

constexpr std::size_t kLargestFile = 1024 * 1024;

/// A file's content, wiped at the end, as it may be a key.
struct CSecretText {
    CSecretText() = default;
    CSecretText(const CSecretText&) = delete;
    CSecretText& operator=(const CSecretText&) = delete;
    ~CSecretText() { OPENSSL_cleanse(text.data(), text.size()); }
    std::string text;
};

std::wstring ToSentence(ErrorCode error) {
    return SystemMessage(ToNumber(error)).value_or(L"Error " + std::to_wstring(ToNumber(error)) + L".");
}

/// Reads the whole file; on failure `why` says, in a sentence, what is wrong with it.
bool ReadWhole(const std::string& path, std::string& text, std::wstring& why) {
    const auto wide = FromUtf8Strict(path);
    const CResult<CFile> file = wide ? CFile::Open(*wide) : ErrorCode::InvalidName;
    if (!file.IsOk()) {
        why = ToSentence(file.Error());
        return false;
    }
    if (file.Value().Stamp().size > kLargestFile) {
        why = L"It is larger than 1 MiB.";
        return false;
    }
    text.resize(file.Value().Stamp().size);
    std::size_t have = 0;
    while (have < text.size()) {
        const auto count = file.Value().Read(
            have, {reinterpret_cast<std::uint8_t*>(text.data()) + have, text.size() - have});
        if (!count.IsOk()) {
            why = ToSentence(count.Error());
            return false;
        }
        if (count.Value() == 0) break;  // it was shortened meanwhile
        have += count.Value();
    }
    text.resize(have);
    return true;
}

/// Stands for a person at a terminal: notes that a passphrase was asked for, and gives none.
int RefusePassphrase(char*, int, int, void* wasAsked) {
    *static_cast<bool*>(wasAsked) = true;
    return -1;
}

CX509Pointer ReadX509(BIO* pem) {
    bool ignored = false;
    return CX509Pointer(PEM_read_bio_X509(pem, nullptr, RefusePassphrase, &ignored));
}

bool IsEndOfPem() {
    const unsigned long error = ERR_peek_last_error();
    return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

/// What makes a certificate out of its two files, one step after the other.
class CLoader {
 public:
    CLoader(const std::string& certificateFile, const std::string& keyFile, std::wstring& reason)
        : m_certificateFile(certificateFile), m_keyFile(keyFile), m_reason(reason) {}

    bool ReadCertificates(CX509Pointer& leaf, CX509ChainPointer& chain) {
        CSecretText content;
        std::wstring why;
        if (!ReadWhole(m_certificateFile, content.text, why))
            return FailCertificate(L"cannot be read: " + why);
        const CBioPointer pem(BIO_new_mem_buf(content.text.data(), static_cast<int>(content.text.size())));
        chain.reset(sk_X509_new_null());
        if (!pem || !chain) return FailCertificate(L"cannot be read: " + OpenSslReason() + L".");
        leaf = ReadX509(pem.get());
        if (!leaf && IsEndOfPem()) return FailCertificate(L"holds no certificate (PEM).");
        while (leaf) {
            CX509Pointer next = ReadX509(pem.get());
            if (!next) break;
            if (sk_X509_push(chain.get(), next.get()) == 0) break;
            Ignore(next.release());
        }
        if (leaf && IsEndOfPem()) return true;
        return FailCertificate(L"holds a certificate that cannot be read: " + OpenSslReason() + L".");
    }

    bool ReadKey(CKeyPointer& key) {
        CSecretText content;
        std::wstring why;
        if (!ReadWhole(m_keyFile, content.text, why)) return FailKey(L"cannot be read: " + why);
        const CBioPointer pem(BIO_new_mem_buf(content.text.data(), static_cast<int>(content.text.size())));
        if (!pem) return FailKey(L"cannot be read: " + OpenSslReason() + L".");
        // OpenSSL's reason for a file without any key would name none of this.
        if (content.text.find("PRIVATE KEY-----") == content.text.npos)
            return FailKey(L"holds no private key (PEM).");
        bool wasAsked = false;
        key.reset(PEM_read_bio_PrivateKey(pem.get(), nullptr, RefusePassphrase, &wasAsked));
        if (key) return true;
        if (wasAsked) return FailKey(L"is encrypted; the service needs it without a passphrase.");
        return FailKey(L"holds a key that cannot be read: " + OpenSslReason() + L".");
    }

    /// Tries the pair as a connection would use it, so that what TLS would refuse then (a key too short, say)
    /// is known now.
    bool Check(X509* leaf, STACK_OF(X509) * chain, EVP_PKEY* key) {
        if (X509_check_private_key(leaf, key) != 1)
            return FailKey(L"does not belong to the certificate in " + FromUtf8(m_certificateFile) + L'.');
        const std::unique_ptr<SSL_CTX, COpenSslFree<SSL_CTX_free>> trial(SSL_CTX_new(TLS_server_method()));
        if (trial && SSL_CTX_use_cert_and_key(trial.get(), leaf, key, chain, 1) == 1) return true;
        return FailCertificate(L"cannot be used for TLS: " + OpenSslReason() + L".");
    }

 private:
    bool FailCertificate(const std::wstring& how) {
        m_reason = L"The certificate file " + FromUtf8(m_certificateFile) + L' ' + how;
        return false;
    }
    bool FailKey(const std::wstring& how) {
        m_reason = L"The private key file " + FromUtf8(m_keyFile) + L' ' + how;
        return false;
    }

    const std::string& m_certificateFile;
    const std::string& m_keyFile;
    std::wstring& m_reason;
};

}  // namespace

std::shared_ptr<const CTlsCertificate> CTlsCertificate::Load(const std::string& certificateFile,
                                                             const std::string& privateKeyFile,
                                                             std::wstring& reason) {
    ERR_clear_error();
    const std::shared_ptr<CTlsCertificate> loaded(new CTlsCertificate);
    CLoader loader(certificateFile, privateKeyFile, reason);
    const bool isGood = loader.ReadCertificates(loaded->m_leaf, loaded->m_chain) &&
                        loader.ReadKey(loaded->m_key) &&
                        loader.Check(loaded->m_leaf.get(), loaded->m_chain.get(), loaded->m_key.get());
    ERR_clear_error();
    return isGood ? loaded : nullptr;
}

bool CTlsCertificate::GiveTo(SSL* connection) const noexcept {
    return SSL_use_cert_and_key(connection, m_leaf.get(), m_key.get(), m_chain.get(), 1) == 1;
}

}  // namespace quorbel
