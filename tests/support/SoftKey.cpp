#include "tests/support/SoftKey.h"

#include <cstdlib>
#include <map>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "tests/support/CborWriter.h"

namespace quorbel {

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

EVP_PKEY* Generate(CSoftKey::Kind kind) {
    switch (kind) {
        case CSoftKey::Kind::P256: return EVP_EC_gen("P-256");
        case CSoftKey::Kind::P384: return EVP_EC_gen("P-384");
        case CSoftKey::Kind::Ed25519: return EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
        case CSoftKey::Kind::Rsa512: return EVP_RSA_gen(512);
        case CSoftKey::Kind::Rsa1024: return EVP_RSA_gen(1024);
        case CSoftKey::Kind::Rsa2048: return EVP_RSA_gen(2048);
    }
    return nullptr;
}

EVP_PKEY* PrivateKey(const std::shared_ptr<void>& key) {
    return static_cast<EVP_PKEY*>(key.get());
}

const unsigned char* Data(std::string_view bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

}  // namespace

CSoftKey::CSoftKey(Kind kind)
    : m_key(Generate(kind), [](void* key) { EVP_PKEY_free(static_cast<EVP_PKEY*>(key)); }) {
    Require(m_key != nullptr);
}

const CSoftKey& CSoftKey::Shared(Kind kind) {
    static std::map<Kind, CSoftKey> keys;
    return keys.try_emplace(kind, kind).first->second;
}

bool CSoftKey::IsRsa() const {
    return EVP_PKEY_is_a(PrivateKey(m_key), "RSA") == 1;
}

std::string CSoftKey::Sign(std::string_view digest, const char* hash) const {
    const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
        EVP_PKEY_CTX_new_from_pkey(nullptr, PrivateKey(m_key), nullptr), &EVP_PKEY_CTX_free);
    Require(EVP_PKEY_sign_init(context.get()) == 1);
    if (hash != nullptr)
        Require(EVP_PKEY_CTX_set_signature_md(context.get(), EVP_get_digestbyname(hash)) == 1);
    std::string signature(static_cast<std::size_t>(EVP_PKEY_get_size(PrivateKey(m_key))), '\0');
    std::size_t size = signature.size();
    Require(EVP_PKEY_sign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                          Data(digest), digest.size()) == 1);
    signature.resize(size);
    return signature;
}

std::string CSoftKey::SignEcdsa(std::string_view digest) const {
    return Sign(digest, nullptr);
}

std::string CSoftKey::SignRsa(SignatureHash hash, std::string_view digest) const {
    return Sign(digest, hash == SignatureHash::Sha1 ? "SHA1" : "SHA256");
}

std::string CSoftKey::Number(const char* name, std::size_t size) const {
    BIGNUM* number = nullptr;
    Require(EVP_PKEY_get_bn_param(PrivateKey(m_key), name, &number) == 1);
    std::string bytes(size == 0 ? static_cast<std::size_t>(BN_num_bytes(number)) : size, '\0');
    Require(BN_bn2binpad(number, reinterpret_cast<unsigned char*>(bytes.data()),
                         static_cast<int>(bytes.size())) > 0);
    BN_free(number);
    return bytes;
}

std::string CSoftKey::X() const {
    return Number(OSSL_PKEY_PARAM_EC_PUB_X, 32);
}

std::string CSoftKey::Y() const {
    return Number(OSSL_PKEY_PARAM_EC_PUB_Y, 32);
}

std::string CSoftKey::Modulus() const {
    return Number(OSSL_PKEY_PARAM_RSA_N, 0);
}

std::string CSoftKey::Exponent() const {
    return Number(OSSL_PKEY_PARAM_RSA_E, 0);
}

std::string CSoftKey::Cose() const {
    using namespace cbor;
    if (IsRsa())
        return Map({{Integer(1), Integer(3)},
                    {Integer(3), Integer(-257)},
                    {Integer(-1), Bytes(Modulus())},
                    {Integer(-2), Bytes(Exponent())}});
    return Map({{Integer(1), Integer(2)},
                {Integer(3), Integer(-7)},
                {Integer(-1), Integer(1)},
                {Integer(-2), Bytes(X())},
                {Integer(-3), Bytes(Y())}});
}

std::string CSoftKey::Certificate() const {
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), &X509_free);
    const bool signsWithoutDigest = EVP_PKEY_is_a(PrivateKey(m_key), "ED25519") == 1;
    Require(X509_set_version(certificate.get(), 2) == 1 &&
            ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0) != nullptr &&
            X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600) != nullptr &&
            X509_set_pubkey(certificate.get(), PrivateKey(m_key)) == 1 &&
            X509_sign(certificate.get(), PrivateKey(m_key), signsWithoutDigest ? nullptr : EVP_sha256()) > 0);
    unsigned char* bytes = nullptr;
    const int size = i2d_X509(certificate.get(), &bytes);
    Require(size > 0);
    std::string der(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return der;
}

}  // namespace quorbel
