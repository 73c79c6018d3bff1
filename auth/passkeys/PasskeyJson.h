#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "LibService/Status.h"
#include "auth/passkeys/Assertion.h"
#include "auth/passkeys/Registration.h"

namespace quorbel {

/// Reading what a page posts. `body` is the whole document. A required member that is missing or of the wrong
/// kind, and a failed Base64url decoding, are InvalidData with the member's own name as extra text
/// ("credentials", "id", "response", "signature" …).
/// @{

/// "credentials"."response": "authenticatorData", "clientDataJSON", "publicKey" (decoded, then dropped) and
/// "attestationObject" (whose decoding is left to VerifyAttestation).
CStatus ReadRegistrationResponse(const nlohmann::json& body, CRegistrationResponse& response);
/// "user"."displayName"; none when either is missing.
CStatus ReadDisplayName(const nlohmann::json& body, std::optional<std::wstring>& displayName);
/// "credentials"."id", decoded.
CStatus ReadCredentialId(const nlohmann::json& body, std::string& credentialId);
/// "credentials"."response": "authenticatorData", "clientDataJSON" and "signature".
CStatus ReadAssertionResponse(const nlohmann::json& body, CAssertionResponse& response);
/// @}

/// Documents that the endpoint sends, in UTF-8, the members of every object sorted by name. Identities,
/// challenges and credential IDs are bytes here and Base64url there; the order of credentials is kept.
/// @{

struct CCreationOptions {
    std::string challenge;
    std::vector<std::string> credentialIds;  ///< of the user; "excludeCredentials" is left out without any
    std::wstring relyingPartyId;
    std::optional<std::wstring> relyingPartyName;
    std::string identity;
    std::wstring userName;
    std::optional<std::wstring> displayName;
};
std::string CreationOptionsDocument(const CCreationOptions& options);

struct CRequestOptions {
    std::string challenge;
    std::vector<std::string> credentialIds;
    std::wstring relyingPartyId;
};
std::string RequestOptionsDocument(const CRequestOptions& options);

struct CSignInResult {
    std::vector<std::string> credentialIds;
    std::wstring displayName;
    std::wstring userName;
    std::string identity;
};
std::string SignInDocument(const CSignInResult& result);
/// @}

}  // namespace quorbel
