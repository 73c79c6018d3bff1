#pragma once

#include <filesystem>
#include <memory>

#include "LibService/WorkItems.h"
#include "auth/users/PasswordHashQueue.h"
#include "components/http_server/HttpServer.h"
#include "components/search/SearchComponent.h"
#include "components/search/SearchIndex.h"
#include "platform/com/ClassRegistry.h"
#include "platform/crypto/KeyStorage.h"
#include "platform/folders/FolderSearch.h"
#include "service/QuorbelHTTPService.h"
#include "service/ServiceEnvironment.h"

namespace quorbel {

/// The HTTP service and the components under it, made in the order in which they need each other and
/// destroyed in the reverse one. At most one per process at a time.
class CServiceComponents {
 public:
    /// Makes all of them, or none. `environment` and `work` outlive them; `stop` ends the service's run.
    static CStatus Create(CServiceEnvironment& environment, CWorkItems& work, std::shared_ptr<CEvent> stop,
                          std::unique_ptr<CServiceComponents>& components);
    /// No work is running any more.
    ~CServiceComponents() = default;
    CServiceComponents(const CServiceComponents&) = delete;
    CServiceComponents& operator=(const CServiceComponents&) = delete;

    CQuorbelHTTPService& Service() noexcept { return *m_service; }

    /// What can fail, made first. For Create.
    struct CParts {
        std::shared_ptr<IFolderSearch> folders;
        std::filesystem::path searchFolder;
        std::unique_ptr<ISearchIndex> searchIndex;
        std::unique_ptr<IKeyStorageProvider> keys;
    };
    CServiceComponents(CServiceEnvironment& environment, CParts parts);

 private:
    static CStatus MakeParts(const std::filesystem::path& root, CParts& parts);
    void RegisterHandlers(CWorkItems& work);
    CStatus StartServing(std::shared_ptr<CEvent> stop);

    CServiceEnvironment& m_environment;
    const CParts m_parts;
    CPasswordHashQueue m_hasher;
    const CComRegistration m_archive;
    const CComRegistration m_dataInitialize;
    const CComRegistration m_provider;
    const CSearchRegistration m_search;
    std::unique_ptr<IHttpServer> m_server;
    std::unique_ptr<CQuorbelHTTPService> m_service;
};

}  // namespace quorbel
