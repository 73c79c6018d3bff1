#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/crypto/PublicKey.h"

namespace quorbel {

/// A key pair that exists for a test: what an authenticator or a certification authority has.
class CSoftKey {
 public:
    enum class Kind { P256, P384, Ed25519, Rsa512, Rsa1024, Rsa2048 };

    /// A new key pair.
    explicit CSoftKey(Kind kind);
    /// The same pair for every call of a test program: making an RSA key takes its time.
    static const CSoftKey& Shared(Kind kind);

    bool IsRsa() const;
    /// ECDSA in DER.
    std::string SignEcdsa(std::string_view digest) const;
    /// PKCS #1 version 1.5.
    std::string SignRsa(SignatureHash hash, std::string_view digest) const;

    /// Of a P-256 key: each coordinate in 32 bytes.
    std::string X() const;
    std::string Y() const;
    /// Of an RSA key, big-endian.
    std::string Modulus() const;
    std::string Exponent() const;
    /// The public half of a P-256 or RSA key as a COSE key (ES256 or RS256).
    std::string Cose() const;
    /// A certificate in DER that the key has made for itself.
    std::string Certificate() const;

 private:
    std::string Number(const char* name, std::size_t size) const;
    std::string Sign(std::string_view digest, const char* hash) const;

    std::shared_ptr<void> m_key;
};

}  // namespace quorbel
