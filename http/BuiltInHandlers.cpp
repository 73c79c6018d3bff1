#include "http/BuiltInHandlers.h"

namespace quorbel {

namespace {

class Response final : public CHTTPServer::CRequestHandler::CResponse {
 public:
    explicit Response(std::uint16_t status, HeaderMap headers = {}) : m_status(status) {
        m_headers = std::move(headers);
    }
    std::uint16_t StatusCode() override { return m_status; }

 private:
    const std::uint16_t m_status;
};

}  // namespace

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CRedirectHandler::CreateResponse(
    const web::http::http_request&, const UserIdentity&, const TextMap&) {
    return std::make_shared<Response>(web::http::status_codes::SeeOther, HeaderMap{{L"Location", L"/"}});
}

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CFailureHandler::CreateResponse(
    const web::http::http_request&, const UserIdentity&, const TextMap&) {
    return std::make_shared<Response>(web::http::status_codes::PaymentRequired);
}

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CNotModifiedHandler::CreateResponse(
    const web::http::http_request&, const UserIdentity&, const TextMap&) {
    return std::make_shared<Response>(web::http::status_codes::NotModified);
}

}  // namespace quorbel
