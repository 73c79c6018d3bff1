#include "data/VectorRequestHandler.h"

#include <cpprest/containerstream.h>

namespace quorbel {

class CVectorRequestHandler::Response : public CResponse {
 public:
    Response() : CResponse(CacheClass::Session) {}
    std::uint16_t StatusCode() override { return web::http::status_codes::OK; }

    virtual std::string Prefix(const std::string& name) const = 0;
    virtual std::string Suffix(const std::string& name) const = 0;
    virtual std::string Render(const CHTTPObject& object) const = 0;

    void Fill(const std::string& name, const CHTTPObject& document) {
        m_body =
            concurrency::streams::bytestream::open_istream(Prefix(name) + Render(document) + Suffix(name));
    }
};

class CVectorRequestHandler::XMLResponse final : public Response {
 public:
    std::wstring ContentType() const override { return L"text/xml"; }
    std::string Prefix(const std::string& name) const override {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<" + name + ">";
    }
    std::string Suffix(const std::string& name) const override { return "</" + name + ">"; }
    std::string Render(const CHTTPObject& object) const override { return object.Xml(); }
};

class CVectorRequestHandler::JsonResponse final : public Response {
 public:
    std::wstring ContentType() const override { return L"application/json"; }
    std::string Prefix(const std::string&) const override { return {}; }
    std::string Suffix(const std::string&) const override { return {}; }
    std::string Render(const CHTTPObject& object) const override { return object.Json(); }
};

namespace {

enum class Rendering { Xml, Json };

/// The first media type of the list that is known decides; blanks around one belong to it.
Rendering ChooseRendering(std::string_view accept) {
    for (std::size_t start = 0; start <= accept.size();) {
        const std::size_t end = std::min(accept.find(',', start), accept.size());
        std::string_view item = accept.substr(start, end - start);
        item = item.substr(0, item.find(';'));
        if (item == "application/json") return Rendering::Json;
        if (item == "application/xml" || item == "*/*") return Rendering::Xml;
        start = end + 1;
    }
    return Rendering::Xml;
}

}  // namespace

std::shared_ptr<CHTTPServer::CRequestHandler::CResponse> CVectorRequestHandler::CreateResponse(
    const web::http::http_request& request, const UserIdentity&, const TextMap&) {
    const auto accept = request.headers().find(web::http::header_names::accept);
    const auto rendering =
        accept == request.headers().end() ? Rendering::Xml : ChooseRendering(accept->second);
    std::shared_ptr<Response> response;
    if (rendering == Rendering::Json) {
        response = std::make_shared<JsonResponse>();
    } else {
        response = std::make_shared<XMLResponse>();
    }
    response->Fill(m_name, m_document());
    return response;
}

}  // namespace quorbel
