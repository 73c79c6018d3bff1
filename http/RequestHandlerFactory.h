#pragma once

#include <functional>
#include <span>

#include "http/RequestHandler.h"

namespace quorbel {

/// Creation of query handlers by the kind of a handler file (the text after its last "."). Filled by main()
/// before the service starts, read-only afterwards.
class CRequestHandlerFactory {
 public:
    using Creator = std::function<std::shared_ptr<CHTTPServer::CRequestHandler>(const std::wstring& folder,
                                                                                const std::wstring& file)>;

    static void Register(const std::wstring& kind, Creator creator);
    /// The creation function of a kind, compared without regard to case; null when there is none.
    static const Creator* Find(std::wstring_view kind);
    /// The kinds whose handlers also answer a request for their stylesheet, in the order they are tried.
    static std::span<const std::wstring_view> StylesheetKinds();
};

}  // namespace quorbel
