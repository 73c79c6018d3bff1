#include "auth/AuthenticateHandler.h"

#include <algorithm>
#include <limits>

#include "http/Listener.h"

namespace quorbel {

namespace {

constexpr std::uint32_t kDefaultSessionTimeout = 600;

std::wstring ValueOf(const TextMap& values, const wchar_t* name) {
    const auto value = values.find(name);
    return value == values.end() ? std::wstring() : value->second;
}

}  // namespace

std::uint32_t AuthenticateHandler::SessionTimeout(std::wstring_view text) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    if (text.empty()) return kDefaultSessionTimeout;
    const bool isNumber = text.front() >= L'0' && text.front() <= L'9';
    const auto number = TakeDecimal(text);
    return isNumber ? static_cast<std::uint32_t>(std::min(number.value_or(kMost), kMost)) : 0;
}

std::shared_ptr<CHTTPServer::CRequestHandler> AuthenticateHandler::CreateRequestHandler(
    const web::http::http_request& request) {
    if (request.method() != web::http::methods::POST) return nullptr;
    return std::make_shared<Handler>(shared_from_this());
}

void AuthenticateHandler::Register(const Platform& platform) {
    CHTTPServer::CLocation::RegisterHandler(
        L"Authenticate", [platform](const TextMap& values, CHTTPServer::CListener& listener) {
            auto handler = std::make_shared<AuthenticateHandler>(
                platform, listener.Host(), SessionTimeout(ValueOf(values, L"Session Timeout")),
                ValueOf(values, L"Auth Cookie"));
            listener.SetAuthenticator(handler);
            return handler;
        });
}

}  // namespace quorbel
