#include <cstdlib>

#include "platform/Text.h"
#include "platform/registry/Key.h"

namespace quorbel {

namespace {

/// The value of the variable between the percent signs at `start` and `end`.
std::optional<std::wstring> Variable(std::wstring_view text, std::size_t start, std::size_t end) {
    const std::wstring_view name = text.substr(start + 1, end - start - 1);
    if (name.empty() || name.find(L'\0') != name.npos) return std::nullopt;
    const char* value = std::getenv(ToUtf8(name).c_str());
    if (!value) return std::nullopt;
    return FromUtf8(value);
}

}  // namespace

std::wstring ExpandEnvironment(std::wstring_view text) {
    std::wstring expanded;
    std::size_t position = 0;
    while (position < text.size()) {
        const std::size_t start = text.find(L'%', position);
        const std::size_t end = start == text.npos ? text.npos : text.find(L'%', start + 1);
        if (end == text.npos) break;
        expanded += text.substr(position, start - position);
        if (const auto value = Variable(text, start, end)) {
            expanded += *value;
            position = end + 1;
        } else {
            // The second percent sign may begin a reference of its own.
            expanded += text.substr(start, end - start);
            position = end;
        }
    }
    return expanded += text.substr(std::min(position, text.size()));
}

}  // namespace quorbel
