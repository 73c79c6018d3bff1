#include "http/FormBody.h"

#include <algorithm>
#include <cpprest/base_uri.h>
#include <cwctype>

#include "platform/Text.h"

namespace quorbel {

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

TextMap ParseForm(std::string_view body) {
    std::string encoded;
    encoded.reserve(body.size());
    for (char byte : body) {
        if (byte == '+') {
            encoded.append("%20");
        } else {
            encoded.push_back(byte);
        }
    }
    TextMap fields;
    for (const auto& [name, value] : web::uri::split_query(encoded)) fields[FromUtf8(name)] = FromUtf8(value);
    return fields;
}

}  // namespace quorbel
