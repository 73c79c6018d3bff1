#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"
#include "http/BuiltInHandlers.h"
#include "http/DirectoryMappings.h"
#include "http/HandlerFileSearch.h"
#include "http/Listener.h"

namespace quorbel {

std::pair<UserIdentity, std::shared_ptr<CHTTPServer::CRequestHandler>>
CHTTPServer::CListener::FindRequestHandler(const Request& request, const CUrlPath& path,
                                           const Routing& routing) {
    IAuthenticator::Identity caller{{}, AccessLevel::User};
    if (m_authenticator) caller = m_authenticator->Identify(request);
    if (caller.level != AccessLevel::Anon && request.method() == web::http::methods::GET) {
        const CListenerConfiguration& configuration = *routing.configuration;
        const CDirectoryMappings mappings(*m_archive.Get(), m_service.m_files,
                                          configuration.directoryMappings, configuration.rangeCap);
        if (auto handler = mappings.Find(request, path.Text())) return {caller.user, std::move(handler)};
    }
    return {caller.user, FindCachedHandler(request, caller.level, path.Text(), routing)};
}

std::shared_ptr<CHTTPServer::CRequestHandler> CHTTPServer::CListener::FindCachedHandler(
    const Request& request, AccessLevel level, const std::wstring& path, const Routing& routing) {
    const std::wstring key = path + L"." + FromUtf8(request.method());
    if (auto cached = m_routingCache.Find(level, key)) return *std::move(cached);

    CHandlerFileSearch::Result found;
    if (const auto location = m_locations.find(path); location != m_locations.end()) {
        found.handler = location->second->CreateRequestHandler(request);
    } else if (path.starts_with(L'/')) {  // the asterisk form names no file
        const CHandlerFileSearch search(m_environment.folders, m_service.m_files, m_follower);
        found = search.Find(m_accessRoots, routing.configuration->webApplications, level, path, key);
        if (!found.handler && level != AccessLevel::Anon) ReportNotFound(path);
    }
    if (!found.handler && level == AccessLevel::Anon) {
        if (path.size() < 2) return std::make_shared<CFailureHandler>();
        return std::make_shared<CRedirectHandler>();
    }
    if (!found.mayBeKept) return found.handler;
    return m_routingCache.Insert(level, key, std::move(found.handler), routing.generation);
}

void CHTTPServer::CListener::ReportNotFound(const std::wstring& path) {
    // Long paths are a scanner's: their beginning will do, and does not push everything else out of the log.
    constexpr std::size_t kLongestPath = 256;
    m_notFoundEvents.Write(path.substr(0, kLongestPath), [this](const std::wstring& text) {
        CEventLog::Instance().ReportMessage(message::kNotFound, {m_host, text});
    });
}

}  // namespace quorbel
