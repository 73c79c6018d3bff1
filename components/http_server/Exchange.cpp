#include "components/http_server/Exchange.h"

#include <cpprest/containerstream.h>

#include "platform/UrlPath.h"

namespace quorbel {

namespace {

/// What the library carries from a request to its response.
class CServerContext final : public web::http::details::_http_server_context {
 public:
    explicit CServerContext(std::shared_ptr<CExchange> exchange) noexcept : m_exchange(std::move(exchange)) {}
    ~CServerContext() override {
        if (m_exchange) m_exchange->SetAnswer(std::nullopt);
    }
    std::shared_ptr<CExchange> Take() noexcept { return std::move(m_exchange); }

 private:
    std::shared_ptr<CExchange> m_exchange;
};

/// A query as a URI holds it (RFC 3986, section 3.4): other bytes are percent-encoded, what is encoded stays.
void AppendQuery(std::string& target, std::string_view query) {
    constexpr std::string_view kMarks = "-._~!$&'()*+,;=:@/?%";
    for (char byte : query) {
        const bool isAlphanumeric =
            (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
        if (isAlphanumeric || kMarks.find(byte) != std::string_view::npos) {
            target.push_back(byte);
        } else {
            AppendPercentEncoded(target, byte);
        }
    }
}

std::string CanonicalTarget(std::string_view path, std::string_view query) {
    std::string target(path);
    // The library takes what follows two slashes for a host.
    if (target.starts_with("//")) target.replace(1, 1, "%2F");
    if (!query.empty()) AppendQuery(target.append("?"), query);
    return target;
}

void AddField(web::http::http_headers& headers, const CRequestHead::CField& field) {
    std::string& value = headers[std::string(field.name)];
    if (!value.empty()) value.append(EqualsLower(field.name, "cookie") ? "; " : ", ");
    value.append(field.value);
}

}  // namespace

web::http::http_request CExchange::MakeRequest(const CRequestHead& head, std::string_view path,
                                               const std::string& peerAddress) {
    auto request =
        web::http::http_request::_create_request(std::make_unique<CServerContext>(shared_from_this()));
    request.set_method(std::string(head.method));
    request.set_request_uri(web::uri(CanonicalTarget(path, head.query)));
    auto& message = *request._get_impl();
    message._set_http_version({1, static_cast<std::uint8_t>(head.minorVersion)});
    message._set_remote_address(peerAddress);
    for (const CRequestHead::CField& field : head.fields) AddField(message.headers(), field);
    return request;
}

void CExchange::Complete(web::http::http_request& request, std::string body) {
    auto& message = *request._get_impl();
    const std::size_t size = body.size();
    message.set_instream(concurrency::streams::bytestream::open_istream(std::move(body)));
    message._complete(size);
}

void CExchange::Respond(web::http::http_response response) {
    auto* context = static_cast<CServerContext*>(response._get_server_context());
    if (!context) return;
    if (const auto exchange = context->Take()) exchange->SetAnswer(std::move(response));
}

void CExchange::SetAnswer(Answer answer) {
    if (m_isAnswered.exchange(true)) return;
    m_answer = std::move(answer);
    const auto waiter = std::move(m_waiter);
    if (m_state.exchange(State::Answered) == State::Waiting) waiter->OnLateAnswer();
}

bool CExchange::HandlerReturned() noexcept {
    State expected = State::Running;
    return !m_state.compare_exchange_strong(expected, State::Waiting);
}

}  // namespace quorbel
