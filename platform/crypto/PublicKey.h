#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/Error.h"

namespace quorbel {

enum class SignatureHash { Sha1, Sha256 };

/// A public key that verifies signatures over a digest that the caller computed. A value that is cheap to
/// copy and may be used by several threads at once.
///
/// RSA keys have a modulus of 1,024 to 8,192 bits and an odd exponent from 3 to 2^64 - 1, so that the time
/// that a verification takes is bounded; others are ErrorCode::BadKey. A library without the algorithm is
/// ErrorCode::NotSupported.
class CPublicKey {
 public:
    /// A point of NIST P-256 (FIPS 186-4), each coordinate big-endian in exactly 32 bytes. BadKey when it is
    /// not on the curve.
    static CResult<CPublicKey> FromP256(std::string_view x, std::string_view y);
    /// Modulus and exponent, big-endian; leading zero bytes do not count.
    static CResult<CPublicKey> FromRsa(std::string_view modulus, std::string_view exponent);
    /// The subject's key of an X.509 certificate in DER, of any kind; nothing else in it is looked at.
    /// BadData: no certificate, or bytes follow it; BadKey: its key cannot be used.
    static CResult<CPublicKey> FromCertificate(std::string_view der);

    /// ECDSA over P-256; `signature` is r and s, big-endian in 32 bytes each. BadSignature when it does not
    /// fit, BadKey when this is no P-256 key.
    ErrorCode VerifyEcdsa(std::string_view digest, std::string_view signature) const;
    /// RSASSA-PKCS1-v1_5 (RFC 8017, 8.2) naming `hash`. BadSignature when it does not fit, also because the
    /// digest is not as long as the named hash's; BadKey when this is no RSA key.
    ErrorCode VerifyRsa(SignatureHash hash, std::string_view digest, std::string_view signature) const;

 private:
    explicit CPublicKey(std::shared_ptr<void> key) noexcept : m_key(std::move(key)) {}

    std::shared_ptr<void> m_key;  ///< the library's key, constant after construction
};

/// Reads an ECDSA signature in DER (RFC 3279, 2.2.3) and gives r and s, big-endian and padded to 32 bytes
/// each. Empty when it is anything else: other encodings than DER's, bytes behind it, integers below 0 or of
/// more than 32 bytes.
std::string ConvertASN1ToRaw(std::string_view der);

}  // namespace quorbel
