#include "auth/Token.h"

#include <array>
#include <bit>
#include <cstdint>

#include "platform/Text.h"
#include "platform/crypto/Random.h"

namespace quorbel {

CResult<std::string> NewToken() {
    std::array<unsigned char, sizeof(std::uint64_t)> bytes;
    if (const ErrorCode error = FillRandom(bytes); error != ErrorCode::Success) return error;
    return ToUtf8(ToHex(std::bit_cast<std::uint64_t>(bytes), 16));
}

}  // namespace quorbel
