#include "auth/users/Argon2.h"

#include <argon2.h>

namespace quorbel {

namespace {

constexpr std::uint32_t kPasses = 3;
constexpr std::uint32_t kMemory = 65536;  // KiB
constexpr std::uint32_t kLanes = 4;       // and as many threads

static_assert(ARGON2_VERSION_NUMBER == 0x13, "passwords are stored by this version of the algorithm");

}  // namespace

CResult<PasswordHash> CArgon2::Hash(std::string_view password, const PasswordSalt& salt) {
    PasswordHash hash;
    const int result = ::argon2id_hash_raw(kPasses, kMemory, kLanes, password.data(), password.size(),
                                           salt.data(), salt.size(), hash.data(), hash.size());
    const ErrorCode error = Argon2Error(result);
    if (error != ErrorCode::Success) return error;
    return hash;
}

ErrorCode Argon2Error(int result) noexcept {
    switch (result) {
        case ARGON2_OK: return ErrorCode::Success;
        case ARGON2_PWD_TOO_SHORT: return ErrorCode::PasswordTooShort;
        case ARGON2_MEMORY_ALLOCATION_ERROR: return ErrorCode::NotEnoughMemory;
        case ARGON2_INCORRECT_PARAMETER: return ErrorCode::InvalidParameter;
        case ARGON2_ENCODING_FAIL: return ErrorCode::EncodingFailed;
        case ARGON2_DECODING_FAIL: return ErrorCode::DecodingFailed;
        case ARGON2_THREAD_FAIL: return ErrorCode::NoServiceThread;
        default: return ErrorCode::InternalError;
    }
}

}  // namespace quorbel
