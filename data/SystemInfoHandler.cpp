#include "data/SystemInfoHandler.h"

#include "data/VectorRequestHandler.h"
#include "http/Listener.h"

namespace quorbel {

CStatus SystemInfoHandler::Open(CHTTPServer&, const std::wstring&, const CRegistryKey&) {
    CComPtr<IArchiveSystem> system;
    if (const HRESULT result = m_archive->GetSystem(system.Receive()); !Succeeded(result)) {
        return HResultError(result);
    }
    std::wstring version;
    if (const HRESULT result = system->GetVersion(&version); !Succeeded(result)) return HResultError(result);
    m_version = ToUtf8(version);
    return {};
}

std::shared_ptr<CHTTPServer::CRequestHandler> SystemInfoHandler::CreateRequestHandler(
    const web::http::http_request& request) {
    if (request.method() != web::http::methods::GET) return nullptr;
    return std::make_shared<CVectorRequestHandler>(
        "SystemInfo", [version = m_version] { return CHTTPSystem(version).Take(); });
}

void SystemInfoHandler::Register() {
    CHTTPServer::CLocation::RegisterHandler(
        L"SystemInfo", [](const TextMap&, CHTTPServer::CListener& listener) {
            return std::make_shared<SystemInfoHandler>(CComPtr<IArchiveFileSystem>(&listener.Archive()));
        });
}

}  // namespace quorbel
