#include "platform/crypto/Random.h"

#include <cerrno>
#include <sys/random.h>

namespace quorbel {

ErrorCode FillRandom(std::span<unsigned char> bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t filled = ::getrandom(bytes.data(), bytes.size(), 0);
        if (filled < 0 && errno != EINTR) return ErrorFromErrno(errno);
        if (filled > 0) bytes = bytes.subspan(static_cast<std::size_t>(filled));
    }
    return ErrorCode::Success;
}

}  // namespace quorbel
