#pragma once

#include "auth/Authentication.h"
#include "http/Location.h"

namespace quorbel {

/// Answers the requests to an endpoint.
class CHTTPServer::CAuthenticator::Handler final : public CHTTPServer::CRequestHandler {
 public:
    explicit Handler(std::shared_ptr<CAuthenticator> authenticator)
        : m_authenticator(std::move(authenticator)) {}
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override {
        return m_authenticator->Authenticate(request, user, parameters);
    }

 private:
    const std::shared_ptr<CAuthenticator> m_authenticator;
};

/// The location "Authenticate": its listener's authenticator, and the endpoint for POST requests. "Session
/// Timeout" is the time in seconds that sessions last unused (600 when absent or empty), "Auth Cookie" the
/// cookie's name.
class AuthenticateHandler final : public CHTTPServer::CLocation::CInstance,
                                  public CHTTPServer::CAuthenticator {
 public:
    AuthenticateHandler(const Platform& platform, const std::wstring& host, std::uint32_t sessionTimeout,
                        std::wstring cookieName)
        : CAuthenticator(platform, host, sessionTimeout), m_cookieName(std::move(cookieName)) {}

    CStatus Open(CHTTPServer& service, const std::wstring& path, const CRegistryKey& hostKey) override {
        return Initialize(service, path, hostKey, m_cookieName);
    }
    std::shared_ptr<CHTTPServer::CRequestHandler> CreateRequestHandler(
        const web::http::http_request& request) override;

    /// What "Session Timeout" means: the decimal number that it begins with, at most what 32 bits hold; 0 for
    /// none, 600 for an empty text.
    static std::uint32_t SessionTimeout(std::wstring_view text);

    /// Makes the location known as "Authenticate".
    static void Register(const Platform& platform);

 private:
    const std::wstring m_cookieName;
};

}  // namespace quorbel
