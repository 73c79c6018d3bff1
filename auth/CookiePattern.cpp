#include "auth/CookiePattern.h"

#include <re2/re2.h>

#include "LibService/MessageIds.h"
#include "platform/Text.h"

namespace quorbel {

CCookiePattern::CCookiePattern() = default;
CCookiePattern::~CCookiePattern() = default;
CCookiePattern::CCookiePattern(CCookiePattern&&) noexcept = default;
CCookiePattern& CCookiePattern::operator=(CCookiePattern&&) noexcept = default;

CStatus CCookiePattern::Create(const std::wstring& name, CCookiePattern& pattern) {
    pattern = CCookiePattern();
    if (name.empty()) return {};
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
    re2::StringPiece value;
    const re2::StringPiece text(field.data(), field.size());
    if (!m_expression || !RE2::FullMatch(text, *m_expression, &value)) return {};
    return {value.data(), value.size()};
}

}  // namespace quorbel
