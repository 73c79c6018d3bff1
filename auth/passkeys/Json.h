#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace quorbel {

/// Reads a JSON document (RFC 8259) that comes from outside; false when it is none, is no valid UTF-8 or is
/// nested more than 16 deep, which would only cost memory.
bool ParseJson(std::string_view text, nlohmann::json& document);

}  // namespace quorbel
