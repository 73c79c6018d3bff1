#include "auth/passkeys/Challenge.h"

#include "platform/crypto/Digest.h"

namespace quorbel {

std::string MakeChallenge(std::string_view identity, std::int64_t time) {
    std::string bytes;
    for (int shift = 0; shift < 64; shift += 8)
        bytes += static_cast<char>(static_cast<std::uint64_t>(time) >> shift & 0xFF);
    return Sha256({identity, bytes});
}

}  // namespace quorbel
