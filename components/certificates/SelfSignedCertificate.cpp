#include "components/certificates/SelfSignedCertificate.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "components/certificates/OpenSsl.h"
#include "platform/Error.h"

namespace quorbel {

namespace {

constexpr int kSerialBits = 127;
/// Longer names do not fit a common name.
constexpr std::size_t kLongestCommonName = 64;

using CNumberPointer = std::unique_ptr<BIGNUM, COpenSslFree<BN_free>>;
using COctetsPointer = std::unique_ptr<ASN1_OCTET_STRING, COpenSslFree<ASN1_OCTET_STRING_free>>;
using CNamePointer = std::unique_ptr<GENERAL_NAME, COpenSslFree<GENERAL_NAME_free>>;
using CNamesPointer = std::unique_ptr<GENERAL_NAMES, COpenSslFree<GENERAL_NAMES_free>>;
using CExtensionPointer = std::unique_ptr<X509_EXTENSION, COpenSslFree<X509_EXTENSION_free>>;

CNamePointer ToGeneralName(const std::string& text) {
    CNamePointer name(GENERAL_NAME_new());
    if (!name) return nullptr;
    if (COctetsPointer address{a2i_IPADDRESS(text.c_str())}) {
        GENERAL_NAME_set0_value(name.get(), GEN_IPADD, address.release());
        return name;
    }
    ASN1_IA5STRING* dnsName = ASN1_IA5STRING_new();
    if (!dnsName) return nullptr;
    GENERAL_NAME_set0_value(name.get(), GEN_DNS, dnsName);
    return ASN1_STRING_set(dnsName, text.data(), static_cast<int>(text.size())) == 1 ? std::move(name)
                                                                                     : nullptr;
}

bool AddNames(X509* certificate, std::span<const std::string> names) {
    const CNamesPointer list(GENERAL_NAMES_new());
    if (!list) return false;
    for (const std::string& text : names) {
        CNamePointer name = ToGeneralName(text);
        if (!name || sk_GENERAL_NAME_push(list.get(), name.get()) == 0) return false;
        Ignore(name.release());
    }
    // Where the subject is empty, the names are what must be understood (RFC 5280, section 4.2.1.6).
    const bool hasSubject = names.front().size() <= kLongestCommonName;
    if (X509_add1_ext_i2d(certificate, NID_subject_alt_name, list.get(), hasSubject ? 0 : 1, 0) != 1)
        return false;
    X509_NAME* subject = X509_get_subject_name(certificate);
    const auto* common = reinterpret_cast<const unsigned char*>(names.front().c_str());
    if (hasSubject && X509_NAME_add_entry_by_NID(subject, NID_commonName, MBSTRING_ASC,
                                                 const_cast<unsigned char*>(common), -1, -1, 0) != 1)
        return false;
    return X509_set_issuer_name(certificate, subject) == 1;
}

bool AddPurpose(X509* certificate) {
    const std::pair<int, const char*> extensions[] = {{NID_basic_constraints, "critical,CA:FALSE"},
                                                      {NID_key_usage, "critical,digitalSignature"},
                                                      {NID_ext_key_usage, "serverAuth"},
                                                      {NID_subject_key_identifier, "hash"}};
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    for (const auto& [id, value] : extensions) {
        const CExtensionPointer extension(X509V3_EXT_conf_nid(nullptr, &context, id, value));
        if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) return false;
    }
    return true;
}

bool SetSerial(X509* certificate) {
    const CNumberPointer number(BN_new());
    return number && BN_rand(number.get(), kSerialBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
           BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr;
}

bool SetValidity(X509* certificate, int days) {
    return X509_gmtime_adj(X509_getm_notBefore(certificate), 0) != nullptr &&
           X509_time_adj_ex(X509_getm_notAfter(certificate), days, 0, nullptr) != nullptr;
}

/// What `write` writes to a memory buffer; none when it cannot.
template <class Write>
std::optional<std::string> ToPem(const Write& write) {
    const CBioPointer pem(BIO_new(BIO_s_secmem()));
    if (!pem || write(pem.get()) != 1) return std::nullopt;
    char* data = nullptr;
    const long size = BIO_get_mem_data(pem.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

std::optional<CPemPair> Create(std::span<const std::string> names, int days) {
    const CKeyPointer key(EVP_EC_gen("P-256"));
    const CX509Pointer certificate(X509_new());
    if (!key || !certificate || X509_set_version(certificate.get(), X509_VERSION_3) != 1 ||
        X509_set_pubkey(certificate.get(), key.get()) != 1 || !SetSerial(certificate.get()) ||
        !SetValidity(certificate.get(), days) || !AddNames(certificate.get(), names) ||
        !AddPurpose(certificate.get()) || X509_sign(certificate.get(), key.get(), EVP_sha256()) == 0)
        return std::nullopt;
    auto certificatePem = ToPem([&](BIO* pem) { return PEM_write_bio_X509(pem, certificate.get()); });
    auto keyPem = ToPem([&](BIO* pem) {
        return PEM_write_bio_PrivateKey(pem, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    if (!certificatePem || !keyPem) return std::nullopt;
    return CPemPair{std::move(*certificatePem), std::move(*keyPem)};
}

}  // namespace

std::optional<CPemPair> CreateSelfSignedCertificate(std::span<const std::string> names, int days,
                                                    std::wstring& reason) {
    ERR_clear_error();
    auto pair = Create(names, days);
    if (!pair) reason = OpenSslReason();
    ERR_clear_error();
    return pair;
}

}  // namespace quorbel
