#pragma once

#include <array>
#include <string_view>

#include "platform/Error.h"

namespace quorbel {

using PasswordSalt = std::array<unsigned char, 16>;
using PasswordHash = std::array<unsigned char, 16>;

/// Makes the slow hash that passwords are stored and compared as. Safe to use from any thread.
class IPasswordHasher {
 public:
    virtual ~IPasswordHasher() = default;
    /// OperationAborted when nobody waits for the result any more.
    virtual CResult<PasswordHash> Hash(std::string_view password, const PasswordSalt& salt) = 0;
};

}  // namespace quorbel
