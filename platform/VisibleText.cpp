#include "platform/VisibleText.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

bool IsInvisible(wchar_t character) {
    const auto point = static_cast<std::uint32_t>(character);
    if (point < 0x20 || (point >= 0x7F && point < 0xA0)) return true;
    return (point >= 0x200B && point <= 0x200F) || (point >= 0x2028 && point <= 0x202E) ||
           (point >= 0x2066 && point <= 0x2069) || point == 0xFEFF;
}

}  // namespace

std::string ToVisibleUtf8(std::wstring_view text) {
    std::wstring visible;
    visible.reserve(text.size());
    for (wchar_t character : text) {
        const auto point = static_cast<std::uint32_t>(character);
        if (!IsInvisible(character)) {
            visible += character;
        } else if (point < 0x100) {
            visible.append(L"\\x").append(ToHex(point, 2));
        } else {
            visible.append(L"\\u").append(ToHex(point, 4));
        }
    }
    return ToUtf8(visible);
}

}  // namespace quorbel
