#include "auth/passkeys/Json.h"

#include <nlohmann/json.hpp>

namespace quorbel {

bool ParseJson(std::string_view text, nlohmann::json& document) {
    constexpr int kDeepest = 16;
    bool isTooDeep = false;
    const auto limit = [&isTooDeep](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
        isTooDeep |= depth > kDeepest;
        return !isTooDeep;
    };
    document = nlohmann::json::parse(text, limit, /*allow_exceptions=*/false);
    return !isTooDeep && !document.is_discarded();
}

}  // namespace quorbel
