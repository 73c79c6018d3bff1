#pragma once

#include <optional>
#include <span>
#include <string>

namespace quorbel {

/// A certificate and its private key (without a passphrase), as PEM.
struct CPemPair {
    std::string certificate;
    std::string privateKey;
};

/// A new self-signed server certificate (ECDSA, P-256) that is valid from now on for so many days, for at
/// least one name: DNS names and IP addresses (IPv6 without brackets), in ASCII. None when OpenSSL fails:
/// `reason` is its text.
std::optional<CPemPair> CreateSelfSignedCertificate(std::span<const std::string> names, int days,
                                                    std::wstring& reason);

}  // namespace quorbel
