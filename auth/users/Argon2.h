#pragma once

#include "auth/users/PasswordHasher.h"

namespace quorbel {

/// Argon2id (RFC 9106), version 0x13, with 3 passes over 64 MiB in 4 lanes, on the calling thread and three
/// more. The failures are NotEnoughMemory, NoServiceThread and what Argon2Error maps to.
class CArgon2 final : public IPasswordHasher {
 public:
    CResult<PasswordHash> Hash(std::string_view password, const PasswordSalt& salt) override;
};

/// The error number for a result of libargon2's; Success for ARGON2_OK.
ErrorCode Argon2Error(int result) noexcept;

}  // namespace quorbel
