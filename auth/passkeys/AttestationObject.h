#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "LibService/Status.h"

namespace quorbel {

/// What an authenticator says of a new credential and of itself (Web Authentication, section 6.5.4).
struct CAttestationObject {
    std::wstring format;
    std::string authenticatorData;
    // Of the statement; a format needs some of these.
    std::optional<std::int32_t> algorithm;  ///< "alg"
    std::string signature;                  ///< "sig"
    std::vector<std::string> certificates;  ///< "x5c", each in DER
    std::string certifiedInfo;              ///< "certInfo"
    std::string publicArea;                 ///< "pubArea"
};

/// Fails with InvalidData and as extra text the name of the member that is missing or of the wrong kind
/// ("fmt", "attStmt", "authData" and those named above); "attestationObject" when the bytes are no CBOR map
/// from text to anything, hold a member twice or go on behind it, "attStmt" when the statement is no such
/// map. Members of other names are ignored.
CStatus ParseAttestationObject(std::string_view bytes, CAttestationObject& object);

}  // namespace quorbel
