#pragma once

#include <string>
#include <string_view>

#include "LibService/Status.h"

namespace quorbel {

/// What the browser answers when it has made a passkey (Web Authentication, section 5.2.1).
struct CRegistrationResponse {
    std::string authenticatorData;
    std::string clientDataJson;
    std::string attestationObject;  ///< still in Base64url
};

/// A new credential whose checks have all passed.
struct CVerifiedCredential {
    std::string aaguid;        ///< 16 bytes
    std::string credentialId;  ///< not empty
    std::string publicKey;     ///< not empty; a COSE key and what extension data follows it
};

/// Checks a new passkey: its attestation ("none", "packed" or "tpm"; certificates are not traced to an
/// anchor), that it was made for this relying party and with the user present and verified. A function of its
/// inputs alone; whether the client data's challenge is pending, the caller knows.
///
/// Fails with kAuthenticatorDataMalformed, kRegistrationForOtherSite, kUserNotVerified,
/// kAttestationFormatUnsupported, kAttestationWithoutCertificate, kAttestationCheckFailed, or with a system
/// error: InvalidData with the name of the member at fault ("authenticatorData" when it is not what the
/// attestation object holds, "authData" when that has no credential ID or no key), InvalidParameter with the
/// unsupported algorithm in hexadecimal, and what the cryptographic library reports with the name of the
/// step.
CStatus VerifyAttestation(const CRegistrationResponse& response, std::string_view relyingPartyHash,
                          std::wstring_view userName, CVerifiedCredential& credential);

}  // namespace quorbel
