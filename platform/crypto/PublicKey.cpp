#include "platform/crypto/PublicKey.h"

#include <memory>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/x509.h>

namespace quorbel {

namespace {

constexpr std::size_t kCoordinateBytes = 32;
constexpr int kLeastRsaBits = 1024;
constexpr int kMostRsaBits = 8192;
constexpr int kMostExponentBits = 64;

template <auto kFree>
struct CFree {
    template <class T>
    void operator()(T* object) const noexcept {
        kFree(object);
    }
};
using CNumber = std::unique_ptr<BIGNUM, CFree<BN_free>>;
using CKey = std::unique_ptr<EVP_PKEY, CFree<EVP_PKEY_free>>;
using CKeyContext = std::unique_ptr<EVP_PKEY_CTX, CFree<EVP_PKEY_CTX_free>>;
using CBuilder = std::unique_ptr<OSSL_PARAM_BLD, CFree<OSSL_PARAM_BLD_free>>;
using CParameters = std::unique_ptr<OSSL_PARAM, CFree<OSSL_PARAM_free>>;
using CSignature = std::unique_ptr<ECDSA_SIG, CFree<ECDSA_SIG_free>>;
using CCertificate = std::unique_ptr<X509, CFree<X509_free>>;

/// Takes back what the library adds to the thread's error queue: a connection that is served by the same
/// thread would take it for its own.
class CErrorQueueMark {
 public:
    CErrorQueueMark() noexcept { ERR_set_mark(); }
    ~CErrorQueueMark() { ERR_pop_to_mark(); }
    CErrorQueueMark(const CErrorQueueMark&) = delete;
    CErrorQueueMark& operator=(const CErrorQueueMark&) = delete;
};

const unsigned char* Data(std::string_view bytes) noexcept {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

/// From at most a few thousand bytes, big-endian.
CNumber Number(std::string_view bytes) {
    return CNumber(BN_bin2bn(Data(bytes), static_cast<int>(bytes.size()), nullptr));
}

bool IsRsaWithinBounds(const EVP_PKEY* key) {
    BIGNUM* exponent = nullptr;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &exponent) != 1) return false;
    const CNumber owner(exponent);
    const int bits = EVP_PKEY_get_bits(key);
    return bits >= kLeastRsaBits && bits <= kMostRsaBits && BN_is_odd(exponent) && !BN_is_one(exponent) &&
           BN_num_bits(exponent) <= kMostExponentBits;
}

bool IsP256(const EVP_PKEY* key) {
    char name[32];
    return EVP_PKEY_is_a(key, "EC") == 1 &&
           EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, name, sizeof(name), nullptr) ==
               1 &&
           std::string_view(name) == SN_X9_62_prime256v1;
}

CResult<CKey> Import(const char* algorithm, const CBuilder& builder) {
    const CParameters parameters(OSSL_PARAM_BLD_to_param(builder.get()));
    const CKeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, algorithm, nullptr));
    if (!parameters || !context || EVP_PKEY_fromdata_init(context.get()) != 1) return ErrorCode::NotSupported;
    EVP_PKEY* key = nullptr;
    if (EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, parameters.get()) != 1)
        return ErrorCode::BadKey;
    return CKey(key);
}

std::string ToDer(const ECDSA_SIG* signature) {
    unsigned char* bytes = nullptr;
    const int size = i2d_ECDSA_SIG(signature, &bytes);
    if (size <= 0) return {};
    std::string der(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return der;
}

/// From r and s of 32 bytes each.
std::string RawToDer(std::string_view raw) {
    CNumber r = Number(raw.substr(0, kCoordinateBytes));
    CNumber s = Number(raw.substr(kCoordinateBytes));
    const CSignature signature(ECDSA_SIG_new());
    if (!r || !s || !signature || ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1) return {};
    Ignore(r.release());
    Ignore(s.release());
    return ToDer(signature.get());
}

/// `hash` is null where the signature does not name one.
ErrorCode Verify(EVP_PKEY* key, const EVP_MD* hash, std::string_view digest, std::string_view signature) {
    const CKeyContext context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (!context || EVP_PKEY_verify_init(context.get()) != 1) return ErrorCode::CryptographyFailed;
    if (hash != nullptr && EVP_PKEY_CTX_set_signature_md(context.get(), hash) != 1)
        return ErrorCode::CryptographyFailed;
    const bool isValid =
        EVP_PKEY_verify(context.get(), Data(signature), signature.size(), Data(digest), digest.size()) == 1;
    return isValid ? ErrorCode::Success : ErrorCode::BadSignature;
}

EVP_PKEY* Key(const std::shared_ptr<void>& key) noexcept {
    return static_cast<EVP_PKEY*>(key.get());
}

}  // namespace

CResult<CPublicKey> CPublicKey::FromP256(std::string_view x, std::string_view y) {
    if (x.size() != kCoordinateBytes || y.size() != kCoordinateBytes) return ErrorCode::BadKey;
    const CErrorQueueMark mark;
    const std::string point = std::string(1, '\x04').append(x).append(y);
    const CBuilder builder(OSSL_PARAM_BLD_new());
    if (!builder ||
        OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, SN_X9_62_prime256v1, 0) !=
            1 ||
        OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                         point.size()) != 1)
        return ErrorCode::NotSupported;
    CResult<CKey> key = Import("EC", builder);
    if (!key.IsOk()) return key.Error();
    return CPublicKey({key.Value().release(), &EVP_PKEY_free});
}

CResult<CPublicKey> CPublicKey::FromRsa(std::string_view modulus, std::string_view exponent) {
    for (std::string_view* number : {&modulus, &exponent})
        number->remove_prefix(std::min(number->find_first_not_of('\0'), number->size()));
    if (modulus.size() > kMostRsaBits / 8 || exponent.size() > kMostExponentBits / 8)
        return ErrorCode::BadKey;
    const CErrorQueueMark mark;
    const CNumber n = Number(modulus);
    const CNumber e = Number(exponent);
    const CBuilder builder(OSSL_PARAM_BLD_new());
    if (!n || !e || !builder || OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get()) != 1)
        return ErrorCode::NotSupported;
    CResult<CKey> key = Import("RSA", builder);
    if (!key.IsOk()) return key.Error();
    if (!IsRsaWithinBounds(key.Value().get())) return ErrorCode::BadKey;
    return CPublicKey({key.Value().release(), &EVP_PKEY_free});
}

CResult<CPublicKey> CPublicKey::FromCertificate(std::string_view der) {
    const CErrorQueueMark mark;
    const unsigned char* end = Data(der);
    const CCertificate certificate(d2i_X509(nullptr, &end, static_cast<long>(der.size())));
    if (!certificate || end != Data(der) + der.size()) return ErrorCode::BadData;
    CKey key(X509_get_pubkey(certificate.get()));
    if (!key) return ErrorCode::BadKey;
    if (EVP_PKEY_is_a(key.get(), "RSA") == 1 && !IsRsaWithinBounds(key.get())) return ErrorCode::BadKey;
    return CPublicKey({key.release(), &EVP_PKEY_free});
}

ErrorCode CPublicKey::VerifyEcdsa(std::string_view digest, std::string_view signature) const {
    const CErrorQueueMark mark;
    if (!IsP256(Key(m_key))) return ErrorCode::BadKey;
    if (signature.size() != 2 * kCoordinateBytes) return ErrorCode::BadSignature;
    return Verify(Key(m_key), nullptr, digest, RawToDer(signature));
}

ErrorCode CPublicKey::VerifyRsa(SignatureHash hash, std::string_view digest,
                                std::string_view signature) const {
    const CErrorQueueMark mark;
    if (EVP_PKEY_is_a(Key(m_key), "RSA") != 1) return ErrorCode::BadKey;
    // PKCS #1 version 1.5 is the padding unless another is asked for.
    return Verify(Key(m_key), hash == SignatureHash::Sha1 ? EVP_sha1() : EVP_sha256(), digest, signature);
}

std::string ConvertASN1ToRaw(std::string_view der) {
    const CErrorQueueMark mark;
    const unsigned char* end = Data(der);
    const CSignature signature(d2i_ECDSA_SIG(nullptr, &end, static_cast<long>(der.size())));
    // There is but one encoding in DER.
    if (!signature || ToDer(signature.get()) != der) return {};
    std::string raw(2 * kCoordinateBytes, '\0');
    const auto bytes = reinterpret_cast<unsigned char*>(raw.data());
    const int size = static_cast<int>(kCoordinateBytes);
    if (BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), bytes, size) != size ||
        BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), bytes + size, size) != size)
        return {};
    return raw;
}

}  // namespace quorbel
