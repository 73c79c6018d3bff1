#pragma once

#include <cstdint>
#include <string_view>

#include "LibService/Status.h"
#include "auth/passkeys/Cbor.h"

namespace quorbel {

/// A credential's public key as the authenticator gave it (RFC 9052, section 7).
class CCoseKey {
 public:
    // Algorithms (IANA COSE registry).
    static constexpr std::int64_t kEs256 = -7;
    static constexpr std::int64_t kRs256 = -257;

    // Labels of byte strings.
    static constexpr std::int64_t kX = -2;
    static constexpr std::int64_t kY = -3;
    static constexpr std::int64_t kModulus = -1;
    static constexpr std::int64_t kExponent = -2;

    /// Reads the map that `bytes` begin with; what follows it is extension data and ignored. InvalidData:
    /// there is no map of integer labels, or a label is there twice (extra text "PublicKey"); the algorithm
    /// is missing or no integer ("3").
    static CStatus Parse(std::string_view bytes, CCoseKey& key);

    std::int64_t Algorithm() const noexcept { return m_algorithm; }
    /// The byte string with a label; InvalidData with the label as extra text when there is none.
    CStatus Read(std::int64_t label, std::string& bytes) const;

 private:
    std::int64_t m_algorithm = 0;
    CCborItem::IntegerMap m_parameters;
};

}  // namespace quorbel
