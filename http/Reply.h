#pragma once

#include <string_view>

#include "http/RequestHandler.h"

namespace quorbel {

/// How replies of a listener leave: what every one of them carries, chosen once for the listener's scheme.
class CReply {
 public:
    /// Product and version, as the Server header gives them.
    static constexpr std::wstring_view kServerIdentification = L"Quorbel Vellmoor/7.30";

    enum class Transport { Plain, Tls };
    explicit CReply(Transport transport) noexcept : m_transport(transport) {}

    /// A handler's response with its body, content type and the Cache-Control of its cache class.
    void SendWithBody(const web::http::http_request& request,
                      CHTTPServer::CRequestHandler::CResponse& response) const;
    /// A status with headers and without body; no Cache-Control is chosen.
    void SendWithoutBody(const web::http::http_request& request, std::uint16_t status,
                         const HeaderMap& headers = {}) const;
    /// Status, Allow and Server alone.
    void SendOptions(const web::http::http_request& request, std::uint16_t status,
                     std::wstring_view allow) const;

 private:
    void SendWithCommonHeaders(const web::http::http_request& request, web::http::http_response& reply) const;

    const Transport m_transport;
};

}  // namespace quorbel
