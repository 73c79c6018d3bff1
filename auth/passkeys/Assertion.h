#pragma once

#include <string>
#include <string_view>

#include "LibService/Status.h"

namespace quorbel {

/// What the browser answers when a passkey has signed (Web Authentication, section 5.2.2).
struct CAssertionResponse {
    std::string authenticatorData;
    std::string clientDataJson;
    std::string signature;
};

/// Checks a sign-in: that it answers `expectedChallenge`, was made for this relying party and is signed with
/// the key of the credential (`storedPublicKey`, a COSE key for ES256 or RS256). Flags and counter are not
/// looked at. A function of its inputs alone.
///
/// Fails with kChallengeMismatch, kAuthenticatorDataMalformed, kSignInForOtherSite, or with a system error:
/// InvalidData with the name of the member at fault, InvalidParameter with "Algorithm", and what the
/// cryptographic library reports with the name of the step.
CStatus VerifyAssertion(const CAssertionResponse& response, std::wstring_view userName,
                        std::string_view storedPublicKey, std::string_view expectedChallenge,
                        std::string_view relyingPartyHash);

}  // namespace quorbel
