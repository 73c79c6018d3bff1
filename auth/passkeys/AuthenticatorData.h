#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "LibService/Status.h"

namespace quorbel {

/// What an authenticator signs (Web Authentication, section 6.1). The signature counter is skipped.
struct CAuthenticatorData {
    static constexpr std::uint8_t kUserPresent = 0x01;
    static constexpr std::uint8_t kUserVerified = 0x04;
    static constexpr std::uint8_t kAttestedCredential = 0x40;

    std::uint8_t flags = 0;
    std::string relyingPartyHash;  ///< 32 bytes
    // Empty without the flag kAttestedCredential.
    std::string aaguid;  ///< 16 bytes
    std::string credentialId;
    std::string publicKey;  ///< a COSE key and what extension data follows it
};

/// Fails with kAuthenticatorDataMalformed.
CStatus ParseAuthenticatorData(std::string_view bytes, CAuthenticatorData& data);

}  // namespace quorbel
