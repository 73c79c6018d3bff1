#include "auth/CookiePattern.h"

#include <algorithm>
#include <re2/re2.h>

#include "LibService/MessageIds.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

char Lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
}

bool StandsForItself(std::string_view name) {
    return std::all_of(name.begin(), name.end(), [](char character) {
        return (Lower(character) >= 'a' && Lower(character) <= 'z') ||
               (character >= '0' && character <= '9') || character == '_' || character == '-';
    });
}

/// What stands behind the last "NAME=", up to a ";".
std::string_view FindPlain(std::string_view field, std::string_view name) {
    const auto isSame = [](char left, char right) { return Lower(left) == Lower(right); };
    for (auto equals = field.rfind('='); equals != field.npos && equals >= name.size();
         equals = equals == 0 ? field.npos : field.rfind('=', equals - 1)) {
        const std::string_view before = field.substr(equals - name.size(), name.size());
        if (!std::equal(name.begin(), name.end(), before.begin(), isSame)) continue;
        return field.substr(equals + 1, field.find(';', equals) - equals - 1);
    }
    return {};
}

}  // namespace

CCookiePattern::CCookiePattern() = default;
CCookiePattern::~CCookiePattern() = default;
CCookiePattern::CCookiePattern(CCookiePattern&&) noexcept = default;
CCookiePattern& CCookiePattern::operator=(CCookiePattern&&) noexcept = default;

CStatus CCookiePattern::Create(const std::wstring& name, CCookiePattern& pattern) {
    pattern = CCookiePattern();
    if (name.empty()) return {};
    if (std::string bytes = ToUtf8(name); StandsForItself(bytes)) {
        pattern.m_plainName = std::move(bytes);
        return {};
    }
    RE2::Options options;
    options.set_case_sensitive(false);
    options.set_log_errors(false);
    // A header field may hold any bytes; what is no UTF-8 must not hide the cookie behind it.
    options.set_encoding(RE2::Options::EncodingLatin1);
    auto expression = std::make_unique<const RE2>(".*" + ToUtf8(name) + "=([^;]*).*", options);
    if (!expression->ok()) {
        return MessageError(message::kStandardException, {FromUtf8(expression->error())});
    }
    pattern.m_expression = std::move(expression);
    return {};
}

std::string_view CCookiePattern::Find(std::string_view field) const {
    if (!m_plainName.empty()) return FindPlain(field, m_plainName);
    re2::StringPiece value;
    const re2::StringPiece text(field.data(), field.size());
    if (!m_expression || !RE2::FullMatch(text, *m_expression, &value)) return {};
    return {value.data(), value.size()};
}

}  // namespace quorbel
