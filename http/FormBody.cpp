#include "http/FormBody.h"

#include <algorithm>
#include <cwctype>

#include "platform/Text.h"
#include "platform/crypto/Secret.h"

namespace quorbel {

namespace {

/// A "+" stands for a blank.
std::wstring WithBlanks(std::string_view text) {
    std::string encoded;
    encoded.reserve(3 * text.size());
    for (char byte : text) {
        if (byte == '+') {
            encoded.append("%20");
        } else {
            encoded.push_back(byte);
        }
    }
    std::wstring wide = FromUtf8(encoded);
    Wipe(encoded);
    return wide;
}

}  // namespace

bool HasMediaType(std::wstring_view contentType, std::wstring_view mediaType) {
    for (std::size_t start = 0; start <= contentType.size();) {
        const std::size_t end = std::min(contentType.find(L';', start), contentType.size());
        std::wstring part(contentType.substr(start, end - start));
        std::erase_if(part, [](wchar_t character) { return std::iswspace(static_cast<wint_t>(character)); });
        if (EqualNoCase(part, mediaType)) return true;
        start = end + 1;
    }
    return false;
}

bool IsFormContentType(std::wstring_view contentType) {
    return HasMediaType(contentType, L"application/x-www-form-urlencoded");
}

CFormFields::~CFormFields() {
    for (auto& [name, value] : values) Wipe(value);
}

std::optional<CFormFields> ParseForm(std::string_view body) {
    CFormFields fields;
    if (std::ranges::count(body, '&') >= static_cast<std::ptrdiff_t>(kMostFormFields)) return std::nullopt;
    for (std::size_t start = 0; start < body.size();) {
        const std::size_t end = std::min(body.find('&', start), body.size());
        const std::string_view field = body.substr(start, end - start);
        if (const std::size_t equals = field.find('='); equals != field.npos) {
            fields.values[WithBlanks(field.substr(0, equals))] = WithBlanks(field.substr(equals + 1));
        }
        start = end + 1;
    }
    return fields;
}

}  // namespace quorbel
