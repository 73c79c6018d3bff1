#pragma once

#include <string>

#include "components/archive/ArchiveFileSystem.h"
#include "data/HTTPObject.h"
#include "http/Location.h"

namespace quorbel {

/// The system information document: the archive's version.
class CHTTPSystem : public CHTTPObject::Complex<CHTTPObject> {
 public:
    explicit CHTTPSystem(const std::string& version) { Append("Version", version); }
};

/// The location "SystemInfo": answers GET requests with the system information document.
class SystemInfoHandler final : public CHTTPServer::CLocation::CInstance {
 public:
    explicit SystemInfoHandler(CComPtr<IArchiveFileSystem> archive) : m_archive(std::move(archive)) {}

    /// Asks the archive for its version, once. Errors: the HRESULT of the call that failed.
    CStatus Open(CHTTPServer& service, const std::wstring& path, const CRegistryKey& hostKey) override;
    std::shared_ptr<CHTTPServer::CRequestHandler> CreateRequestHandler(
        const web::http::http_request& request) override;

    /// Makes the location known as "SystemInfo".
    static void Register();

 private:
    const CComPtr<IArchiveFileSystem> m_archive;
    std::string m_version;
};

}  // namespace quorbel
