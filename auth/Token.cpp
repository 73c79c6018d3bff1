#include "auth/Token.h"

#include <array>

#include "platform/crypto/Random.h"

namespace quorbel {

CResult<std::string> NewToken() {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::array<unsigned char, 8> bytes;
    if (const ErrorCode error = FillRandom(bytes); error != ErrorCode::Success) return error;
    std::string token;
    for (unsigned char byte : bytes) {
        token.push_back(kDigits[byte >> 4]);
        token.push_back(kDigits[byte & 15]);
    }
    return token;
}

}  // namespace quorbel
