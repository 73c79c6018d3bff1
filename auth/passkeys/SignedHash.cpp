#include "auth/passkeys/SignedHash.h"

#include "platform/crypto/Digest.h"

namespace quorbel {

std::string GetSignedHash(SignatureHash algorithm, std::string_view clientData,
                          std::string_view authenticatorData) {
    const std::string clientDataHash = Sha256({clientData});
    if (clientDataHash.empty()) return {};
    return algorithm == SignatureHash::Sha1 ? Sha1({authenticatorData, clientDataHash})
                                            : Sha256({authenticatorData, clientDataHash});
}

}  // namespace quorbel
