#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "LibService/Status.h"

namespace re2 {
class RE2;
}

namespace quorbel {

/// Finds a cookie in a Cookie header field (RFC 6265, section 4.2). Safe to use from any thread.
class CCookiePattern {
 public:
    /// Finds nothing.
    CCookiePattern();
    ~CCookiePattern();
    CCookiePattern(CCookiePattern&&) noexcept;
    CCookiePattern& operator=(CCookiePattern&&) noexcept;

    /// `name` is taken as it stands, so that characters with a meaning in regular expressions keep it; an
    /// empty one finds nothing. Message 0xC000012C (the reason) when it makes no valid expression.
    static CStatus Create(const std::wstring& name, CCookiePattern& pattern);

    /// The value of the last cookie whose name ends with the name, without regard to case; empty for none. A
    /// part of `field`.
    std::string_view Find(std::string_view field) const;

 private:
    /// Of a name that stands for itself, instead of an expression, which costs much more than it.
    std::string m_plainName;
    std::unique_ptr<const re2::RE2> m_expression;
};

}  // namespace quorbel
