#pragma once

#include <functional>
#include <string>

#include "data/HTTPObject.h"
#include "http/RequestHandler.h"

namespace quorbel {

/// Answers with a small document, as XML or as JSON by what the request accepts.
class CVectorRequestHandler final : public CHTTPServer::CRequestHandler {
 public:
    using Document = std::function<CHTTPObject()>;

    class Response;
    class XMLResponse;
    class JsonResponse;

    /// `name` is the root element's name in XML; `document` is called once for each request, by many threads.
    CVectorRequestHandler(std::string name, Document document)
        : m_name(std::move(name)), m_document(std::move(document)) {}

    std::shared_ptr<CResponse> CreateResponse(const web::http::http_request& request,
                                              const UserIdentity& user, const TextMap& parameters) override;

 private:
    const std::string m_name;
    const Document m_document;
};

}  // namespace quorbel
