#include "auth/passkeys/Json.h"

#include <nlohmann/json.hpp>

namespace quorbel {

bool ParseJson(std::string_view text, nlohmann::json& document) {
    constexpr int kDeepest = 16;
    bool isTooDeep = false;
    using Event = nlohmann::json::parse_event_t;
    const auto limit = [&isTooDeep](int depth, Event event, nlohmann::json&) {
        isTooDeep |= depth >= kDeepest && (event == Event::array_start || event == Event::object_start);
        return !isTooDeep;
    };
    document = nlohmann::json::parse(text, limit, /*allow_exceptions=*/false);
    return !isTooDeep && !document.is_discarded();
}

}  // namespace quorbel
