#pragma once

#include <memory>

#include "data/SQLRequestHandler.h"

namespace quorbel {

/// Answers a request with the result of a search, which a description beside the static files tells: the
/// handler of files of the kind "SEARCH". docs/search-files.md tells what such a file may hold. URLs of files
/// in folders that the description refers to become their web paths, and rows that name folders are left out.
class CSearchQueryRequestHandler final : public CSQLRequestInstance, public CHTTPServer::CRequestHandler {
 public:
    /// Makes the kind "SEARCH" known.
    static void Register(IClock& clock);

    using CSQLRequestInstance::CSQLRequestInstance;
    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override;

 private:
    class Response;
};

}  // namespace quorbel
