#include "platform/crypto/Secret.h"

#include "platform/Text.h"

namespace quorbel {

CSecretBytes ToSecretUtf8(std::wstring_view text) {
    constexpr std::size_t kLongestCharacter = 4;
    std::string bytes;
    // Room for all from the beginning: a string that grows leaves its earlier places behind.
    bytes.reserve(text.size() * kLongestCharacter);
    for (wchar_t character : text) bytes += ToUtf8({&character, 1});
    return CSecretBytes(std::move(bytes));
}

}  // namespace quorbel
