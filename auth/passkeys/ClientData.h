#pragma once

#include <string>
#include <string_view>

#include "LibService/Status.h"

namespace quorbel {

/// What the browser adds to a ceremony (Web Authentication, section 5.8.1). Of its members only the challenge
/// is read: type, origin, crossOrigin and topOrigin may be missing or hold anything.
struct CClientData {
    std::string challenge;
};

/// `json` is UTF-8. InvalidData: it is no JSON object (extra text "clientDataJSON"), or its challenge is
/// missing, no text or not Base64url ("challenge").
CStatus ParseClientData(std::string_view json, CClientData& data);

}  // namespace quorbel
