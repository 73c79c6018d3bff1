#pragma once

#include "http/RequestHandler.h"

namespace quorbel {

/// Answers 303 with Location "/".
class CRedirectHandler final : public CHTTPServer::CRequestHandler {
 public:
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override;
};

/// Answers 402: nothing here is open to an anonymous caller.
class CFailureHandler final : public CHTTPServer::CRequestHandler {
 public:
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override;
};

/// Answers 304: the caller's copy is still good.
class CNotModifiedHandler final : public CHTTPServer::CRequestHandler {
 public:
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override;
};

}  // namespace quorbel
