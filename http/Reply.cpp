#include "http/Reply.h"

namespace quorbel {

namespace {

using web::http::http_headers;
using web::http::http_request;
using web::http::http_response;

/// Cache-Control of a cache class; empty for none.
std::string_view CacheControl(CacheClass cacheClass) {
    switch (cacheClass) {
        case CacheClass::Manifest: return "max-age=3600";
        case CacheClass::Session:
        case CacheClass::Archive:
        case CacheClass::View: return "private";
        case CacheClass::Dynamic: return "no-store";
        case CacheClass::Absent:
        case CacheClass::Development: return {};
    }
    return {};  // a class that a later version of a query file names
}

/// Adds a field; to one of the same name already there its value is appended. (The library's own add formats
/// through a stream, which costs more than all the rest of a small reply.)
void Add(http_headers& headers, const std::string& name, std::string_view value) {
    std::string& field = headers[name];
    if (!field.empty()) field.append(", ");
    field.append(value);
}

void AddAll(http_headers& headers, const HeaderMap& fields) {
    for (const auto& [name, value] : fields) Add(headers, ToUtf8(name), ToUtf8(value));
}

void AddIfAbsent(http_headers& headers, const std::string& name, std::string_view value) {
    if (!headers.has(name)) headers[name] = value;
}

const std::string& ServerIdentification() {
    static const std::string identification = ToUtf8(CReply::kServerIdentification);
    return identification;
}

/// The body of a reply that no method or status lets go without one.
void SetBody(http_response& reply, CHTTPServer::CRequestHandler::CResponse& response) {
    const auto& body = response.Body();
    if (!body.is_valid()) return;
    reply.set_body(body, ToUtf8(response.ContentType()));
    if (response.ContentType().empty()) reply.headers().remove(web::http::header_names::content_type);
}

/// The library states the length of no body itself, and would join it to one that stands there already.
void RemoveLength(http_response& reply) {
    reply.headers().remove(web::http::header_names::content_length);
}

/// A body of known size goes out with its length instead of in chunks.
void SetKnownLength(http_response& reply, CHTTPServer::CRequestHandler::CResponse& response) {
    const auto& body = response.Body();
    if (!body.is_valid()) return RemoveLength(reply);
    if (reply.headers().has(web::http::header_names::content_length)) return;
    const auto buffer = body.streambuf();
    if (buffer.has_size()) reply.headers().set_content_length(buffer.size());
}

}  // namespace

void CReply::SendWithBody(const http_request& request,
                          CHTTPServer::CRequestHandler::CResponse& response) const {
    http_response reply(response.StatusCode());
    SetBody(reply, response);
    AddAll(reply.headers(), response.Headers());
    SetKnownLength(reply, response);
    if (const auto value = CacheControl(response.Cache()); !value.empty()) {
        AddIfAbsent(reply.headers(), web::http::header_names::cache_control, value);
    }
    SendWithCommonHeaders(request, reply);
}

void CReply::SendWithoutBody(const http_request& request, std::uint16_t status,
                             const HeaderMap& headers) const {
    http_response reply(status);
    AddAll(reply.headers(), headers);
    RemoveLength(reply);
    SendWithCommonHeaders(request, reply);
}

void CReply::SendOptions(const http_request& request, std::uint16_t status, std::wstring_view allow) const {
    http_response reply(status);
    reply.headers()[web::http::header_names::allow] = ToUtf8(allow);
    reply.headers()[web::http::header_names::server] = ServerIdentification();
    request.reply(reply);
}

void CReply::SendWithCommonHeaders(const http_request& request, http_response& reply) const {
    http_headers& headers = reply.headers();
    AddIfAbsent(headers, web::http::header_names::server, ServerIdentification());
    AddIfAbsent(headers, web::http::header_names::accept_ranges, "bytes");
    Add(headers, "Content-Security-Policy", "frame-ancestors 'self'");
    if (m_transport == Transport::Tls) Add(headers, "Strict-Transport-Security", "max-age=86400");
    Add(headers, "X-Content-Type-Options", "nosniff");
    Add(headers, "X-XSS-Protection", "0");
    request.reply(reply);
}

}  // namespace quorbel
