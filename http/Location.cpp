#include "http/Location.h"

#include "LibService/MessageIds.h"

namespace quorbel {

namespace {

std::map<std::wstring, CHTTPServer::CLocation::Creator>& Handlers() {
    static std::map<std::wstring, CHTTPServer::CLocation::Creator> handlers;
    return handlers;
}

}  // namespace

void CHTTPServer::CLocation::RegisterHandler(const std::wstring& name, Creator creator) {
    Handlers()[name] = std::move(creator);
}

std::pair<CStatus, std::shared_ptr<CHTTPServer::CLocation::CInstance>> CHTTPServer::CLocation::Create(
    CHTTPServer& service, const std::wstring& path, const CRegistryKey& hostKey, const TextMap& values,
    CListener& listener) {
    const auto value = values.find(L"Handler");
    if (value == values.end() || value->second.empty()) {
        return {MessageError(message::kLocationWithoutHandler, {path}), nullptr};
    }
    const auto handler = Handlers().find(value->second);
    if (handler == Handlers().end()) {
        return {MessageError(message::kUnknownHandler, {path, value->second}), nullptr};
    }
    auto instance = handler->second(values, listener);
    CStatus status = instance->Open(service, path, hostKey);
    return {std::move(status), std::move(instance)};
}

}  // namespace quorbel
