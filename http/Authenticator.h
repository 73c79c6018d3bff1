#pragma once

#include "config/AccessLevel.h"
#include "http/RequestHandler.h"

namespace quorbel {

/// Says who a caller is. A listener has at most one; without it every caller is a User without identity. Safe
/// to use from any thread.
class CHTTPServer::IAuthenticator {
 public:
    struct Identity {
        UserIdentity user;  ///< empty when nobody is signed in
        AccessLevel level = AccessLevel::Anon;
    };

    virtual ~IAuthenticator() = default;
    virtual Identity Identify(const web::http::http_request& request) = 0;
    /// The value of the request's session cookie, valid or not; empty when there is none.
    virtual std::wstring ReadCookie(const web::http::http_request& request) = 0;
};

}  // namespace quorbel
