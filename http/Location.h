#pragma once

#include <functional>
#include <utility>

#include "http/RequestHandler.h"

namespace quorbel {

/// Binds one exact request path of a host to a built-in handler.
class CHTTPServer::CLocation {
 public:
    class CInstance;
    /// Makes an instance from the location's values, for a listener.
    using Creator = std::function<std::shared_ptr<CInstance>(const TextMap& values, CListener& listener)>;

    /// Makes a "Handler" value known (compared exactly). Called by main() before the service starts.
    static void RegisterHandler(const std::wstring& name, Creator creator);

    /// Creates and opens the instance that the location's "Handler" names. Errors: message 0xC00000CB (path)
    /// without a handler, 0xC00000CC (path, handler) for an unknown one, and those of its Open.
    static std::pair<CStatus, std::shared_ptr<CInstance>> Create(CHTTPServer& service,
                                                                 const std::wstring& path,
                                                                 const CRegistryKey& hostKey,
                                                                 const TextMap& values, CListener& listener);
};

class CHTTPServer::CLocation::CInstance {
 public:
    virtual ~CInstance() = default;
    /// Called once, right after creation, on the service's main thread.
    virtual CStatus Open(CHTTPServer& service, const std::wstring& path, const CRegistryKey& hostKey) {
        Ignore(service), Ignore(path), Ignore(hostKey);
        return {};
    }
    /// The handler of this request, or none when the location does not answer it. Called by many threads at
    /// once.
    virtual std::shared_ptr<CRequestHandler> CreateRequestHandler(const web::http::http_request& request) = 0;
};

}  // namespace quorbel
