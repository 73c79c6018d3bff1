#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorbel {

/// The challenge of a user's ceremony that began at `time` (nanoseconds of the steady clock): the SHA-256 of
/// the user's identity and the time's 8 bytes, little-endian. 32 bytes; empty when the cryptographic library
/// fails.
std::string MakeChallenge(std::string_view identity, std::int64_t time);

}  // namespace quorbel
