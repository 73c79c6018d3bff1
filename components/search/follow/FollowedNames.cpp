#include "components/search/follow/FollowedNames.h"

#include <algorithm>
#include <string>

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

}  // namespace quorbel
