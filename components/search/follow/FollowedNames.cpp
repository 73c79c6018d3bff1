#include "components/search/follow/FollowedNames.h"

#include <algorithm>

#include "platform/Text.h"

namespace quorbel {

bool IsQueryFile(std::string_view name) noexcept {
    const auto sameLetter = [](char left, char right) {
        return left == right || (left >= 'A' && left <= 'Z' && left + ('a' - 'A') == right);
    };
    for (const std::string_view kind : {".get.sql", ".post.sql", ".get.search", ".post.search"}) {
        if (!std::ranges::search(name, kind, sameLetter).empty()) return true;
    }
    return false;
}

const char* ProblemOfName(std::string_view name) noexcept {
    constexpr char kDelete = 0x7F;
    const auto isControl = [](char byte) {
        return static_cast<unsigned char>(byte) < ' ' || byte == kDelete;
    };
    if (std::ranges::any_of(name, isControl)) return "its name holds control characters";
    return FromUtf8Strict(name) ? nullptr : "its name is not valid UTF-8";
}

}  // namespace quorbel
