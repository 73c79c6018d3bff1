#include "service/ServiceComponents.h"

#include <pplx/threadpool.h>

#include "LibService/MessageIds.h"
#include "auth/AuthenticateHandler.h"
#include "components/archive/LocalArchive.h"
#include "components/provider/ArchiveProvider.h"
#include "data/SQLRequestHandler.h"
#include "data/SearchQueryRequestHandler.h"
#include "data/SystemInfoHandler.h"
#include "platform/Program.h"
#include "platform/Root.h"
#include "platform/oledb/DataInitialize.h"

namespace quorbel {

namespace {

/// Threads of the HTTP library's own pool, which only its file streams use.
constexpr std::size_t kLibraryThreads = 2;

void ReportHttpServer(const std::wstring& sentence) {
    MessageError(message::kStandardException, {sentence}).Report();
}

void ReportSearchIndex(const std::wstring& reason) {
    MessageError(message::kSearchIndexStale, {reason}).Report();
}

/// The index, kept up to date with the help of the program beside this one.
CResult<std::unique_ptr<ISearchIndex>> StartSearchIndex(const std::filesystem::path& folder) {
    const auto program = ProgramPath();
    if (!program.IsOk()) return program.Error();
    return ISearchIndex::Start({folder,
                                {.program = program.Value().parent_path() / "QbTextExtract"},
                                SystemClock(),
                                ReportSearchIndex});
}

}  // namespace

CStatus CServiceComponents::Create(CServiceEnvironment& environment, CWorkItems& work,
                                   std::shared_ptr<CEvent> stop,
                                   std::unique_ptr<CServiceComponents>& components) {
    CParts parts;
    RETURN_IF_FAILED(MakeParts(environment.Root(), parts));
    auto made = std::make_unique<CServiceComponents>(environment, std::move(parts));
    made->RegisterHandlers(work);
    RETURN_IF_FAILED(made->StartServing(std::move(stop)));
    components = std::move(made);
    return {};
}

CStatus CServiceComponents::MakeParts(const std::filesystem::path& root, CParts& parts) {
    auto folders = CreateFolderSearch();
    if (!folders.IsOk()) return SystemError(folders.Error());
    parts.folders = std::move(folders).Value();
    parts.searchFolder = root / kSearchFolder;
    auto searchIndex = StartSearchIndex(parts.searchFolder);
    if (!searchIndex.IsOk()) return SystemError(searchIndex.Error(), L"search index");
    parts.searchIndex = std::move(searchIndex).Value();
    const auto keysFolder = OpenKeysFolder();
    if (!keysFolder.IsOk()) return SystemError(keysFolder.Error(), L"keys folder");
    parts.keys = OpenKeyStorageProvider(keysFolder.Value());
    return {};
}

CServiceComponents::CServiceComponents(CServiceEnvironment& environment, CParts parts)
    : m_environment(environment),
      m_parts(std::move(parts)),
      m_archive(RegisterLocalArchive(environment.LocalMachine())),
      m_dataInitialize(RegisterDataInitialize()),
      m_provider(RegisterArchiveProvider(environment.LocalMachine())),
      m_search(RegisterSearch(m_parts.searchFolder)) {}

void CServiceComponents::RegisterHandlers(CWorkItems& work) {
    SystemInfoHandler::Register();
    CSQLRequestHandler::Register(SystemClock());
    CSearchQueryRequestHandler::Register(SystemClock());
    AuthenticateHandler::Register({m_environment.Registry(), m_hasher, *m_parts.keys, work, SystemClock()});
}

CStatus CServiceComponents::StartServing(std::shared_ptr<CEvent> stop) {
    crossplat::threadpool::initialize_with_threads(kLibraryThreads);
    auto server = IHttpServer::Start({m_environment.LocalMachine(), SystemClock(), ReportHttpServer});
    if (!server.IsOk()) return SystemError(server.Error());
    m_server = std::move(server).Value();
    m_service = std::make_unique<CQuorbelHTTPService>(
        CHTTPServer::Environment{*m_parts.folders, m_environment.Trace(), SystemClock(),
                                 m_parts.searchIndex.get()},
        *m_environment.LocalMachine(), std::move(stop));
    return {};
}

}  // namespace quorbel
