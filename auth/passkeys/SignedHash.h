#pragma once

#include <string>
#include <string_view>

#include "platform/crypto/PublicKey.h"

namespace quorbel {

/// The digest of the authenticator data followed by the SHA-256 of the client data: what a ceremony's
/// signature is made over (Web Authentication, section 6.5.4). Empty when the cryptographic library fails.
std::string GetSignedHash(SignatureHash algorithm, std::string_view clientData,
                          std::string_view authenticatorData);

}  // namespace quorbel
