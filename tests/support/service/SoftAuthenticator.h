#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "auth/passkeys/Assertion.h"
#include "auth/passkeys/Registration.h"
#include "tests/support/CborWriter.h"
#include "tests/support/SoftKey.h"

namespace quorbel {

/// The signature algorithm "RS1" of COSE.
inline constexpr int kRs1 = -65535;
/// A challenge to sign.
inline constexpr std::string_view kChallenge = "thirty-two bytes of a challenge.";

/// A new passkey as a page would post it; a test may change its parts before they are put together.
struct CSoftAttestation {
    std::string format;
    cbor::CMembers statement;
    std::string authenticatorData;  ///< in the response and in the attestation object
    std::string clientDataJson;

    std::string Object() const;
    CRegistrationResponse Response() const;
    /// The member "credentials".
    nlohmann::json Json() const;
};

/// An authenticator with one credential, the attestation keys of its maker, and the browser around it.
struct CSoftAuthenticator {
    explicit CSoftAuthenticator(CSoftKey::Kind kind = CSoftKey::Kind::P256) : key(CSoftKey::Shared(kind)) {}

    const CSoftKey& key;
    std::string relyingPartyId = "example.org";
    std::uint8_t flags = 0x45;  ///< at registration; at sign-in without "attested credential data"
    std::string aaguid = "sixteen bytes id";
    std::string credentialId = std::string("\x00\xFFthe credential of this passkey", 32);
    std::string extensions;  ///< bytes behind the key

    std::string RelyingPartyHash() const;
    std::string PublicKey() const { return key.Cose() + extensions; }
    std::string AuthenticatorData() const;

    /// The algorithm is the statement's "alg", left out without one: an ES256 attestation key unless it is
    /// -65535, the one with RSA and SHA-1.
    /// @{
    CSoftAttestation None(std::string_view challenge) const;
    CSoftAttestation Packed(std::string_view challenge, std::optional<int> algorithm) const;
    CSoftAttestation Tpm(std::string_view challenge, std::optional<int> algorithm) const;
    /// @}

    CAssertionResponse Assertion(std::string_view challenge) const;
    /// The member "credentials" of a sign-in.
    nlohmann::json AssertionJson(std::string_view challenge) const;
};

}  // namespace quorbel
