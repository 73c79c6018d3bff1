#include <iostream>
#include <pplx/threadpool.h>

#include "LibService/ConsoleEcho.h"
#include "LibService/CrashReports.h"
#include "LibService/EventLog.h"
#include "LibService/FaultResponse.h"
#include "LibService/MessageIds.h"
#include "LibService/ServiceLogger.h"
#include "LibService/ThreadSet.h"
#include "LibService/TraceSettings.h"
#include "LibService/WorkItems.h"
#include "auth/AuthenticateHandler.h"
#include "auth/users/PasswordHashQueue.h"
#include "components/archive/LocalArchive.h"
#include "components/http_server/HttpServer.h"
#include "components/provider/ArchiveProvider.h"
#include "components/search/SearchComponent.h"
#include "components/search/SearchIndex.h"
#include "data/SQLRequestHandler.h"
#include "data/SearchQueryRequestHandler.h"
#include "data/SystemInfoHandler.h"
#include "platform/File.h"
#include "platform/Program.h"
#include "platform/Root.h"
#include "platform/StopSignals.h"
#include "platform/Terminal.h"
#include "platform/VisibleText.h"
#include "platform/oledb/DataInitialize.h"
#include "service/QuorbelHTTPService.h"

namespace quorbel {

namespace {

/// Threads of the HTTP library's own pool, which only its file streams use.
constexpr std::size_t kLibraryThreads = 2;

constexpr std::string_view kUsage =
    "Usage: QBHTTPService -debug\n"
    "Runs the Quorbel HTTP Service in the foreground until it is interrupted (Ctrl-C, SIGTERM).\n"
    "  -debug  run as an ordinary process; events are also written to standard error, and requests to\n"
    "          standard output when that is a terminal\n"
    "  -help   this text\n"
    "The configuration is a registry tree: see 'qbctl reg --help' and docs/configuration.md.\n";

bool IsFlag(std::wstring_view argument, std::wstring_view name) {
    return (argument.starts_with(L'-') || argument.starts_with(L'/')) &&
           EqualNoCase(argument.substr(1), name);
}

/// The logger with its message module, echoing to the terminal when there is one.
CStatus SetUpTrace(CServiceLogger& trace, const std::filesystem::path& program) {
    const auto module = program.parent_path() / ("Trc" + ToUtf8(CQuorbelHTTPService::kServiceName) + ".dll");
    RETURN_IF_FAILED(trace.LoadMessages(module));
    if (!StandardOutputIsTerminal()) return {};
    auto echo = CConsoleEcho::Create(kStandardOutput);
    if (!echo.IsOk()) return SystemError(echo.Error());
    trace.SetObserver(std::move(echo).Value());
    return {};
}

CStatus SetUpCrashReports(CServiceLogger& trace, const IKey& localMachine,
                          std::unique_ptr<CCrashReports>& reports) {
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return SystemError(root.Error(), L"root folder");
    const auto settings = CTraceSettings::Read(localMachine, CQuorbelHTTPService::kDisplayName, root.Value());
    return CCrashReports::Create({.folder = settings.folder,
                                  .serviceName = CQuorbelHTTPService::kServiceName,
                                  .afterDump = [&trace] { Ignore(trace.SaveLastRecords()); }},
                                 reports);
}

void SetUpEventSink(const std::filesystem::path& root) {
    CEventLog::Instance().SetSink(StartedByServiceManager()
                                      ? CreateJournalSink(CQuorbelHTTPService::kDisplayName)
                                      : CreateFileSink(root, EventEcho::StandardError));
}

void ReportHttpServer(const std::wstring& sentence) {
    MessageError(message::kStandardException, {sentence}).Report();
}

void ReportSearchIndex(const std::wstring& reason) {
    MessageError(message::kSearchIndexStale, {reason}).Report();
}

/// The index under the root, kept up to date with the help of the program beside this one.
CResult<std::unique_ptr<ISearchIndex>> StartSearchIndex(const std::filesystem::path& folder) {
    const auto program = ProgramPath();
    if (!program.IsOk()) return program.Error();
    return ISearchIndex::Start({folder,
                                {.program = program.Value().parent_path() / "QbTextExtract"},
                                SystemClock(),
                                ReportSearchIndex});
}

CStatus Serve(IRegistry& registry, CServiceLogger& trace, std::shared_ptr<CEvent> stop) {
    auto folders = CreateFolderSearch();
    if (!folders.IsOk()) return SystemError(folders.Error());
    const std::shared_ptr<IKey> localMachine = registry.LocalMachine();
    const CComRegistration archive = RegisterLocalArchive(localMachine);
    const CComRegistration dataInitialize = RegisterDataInitialize();
    const CComRegistration provider = RegisterArchiveProvider(localMachine);
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return SystemError(root.Error(), L"root folder");
    const std::filesystem::path searchFolder = root.Value() / kSearchFolder;
    const CSearchRegistration search = RegisterSearch(searchFolder);
    const auto searchIndex = StartSearchIndex(searchFolder);
    if (!searchIndex.IsOk()) return SystemError(searchIndex.Error(), L"search index");
    SystemInfoHandler::Register();
    CSQLRequestHandler::Register(SystemClock());
    CSearchQueryRequestHandler::Register(SystemClock());
    const auto keysFolder = OpenKeysFolder();
    if (!keysFolder.IsOk()) return SystemError(keysFolder.Error(), L"keys folder");
    const auto keys = OpenKeyStorageProvider(keysFolder.Value());
    CPasswordHashQueue hasher;
    const auto threads = CThreadSet::Create(SystemClock());
    if (!threads.IsOk()) return SystemError(threads.Error());
    const auto work = CWorkItems::Create(*threads.Value());
    if (!work.IsOk()) return SystemError(work.Error());
    AuthenticateHandler::Register({registry, hasher, *keys, *work.Value(), SystemClock()});
    crossplat::threadpool::initialize_with_threads(kLibraryThreads);
    const auto server = IHttpServer::Start({localMachine, SystemClock(), ReportHttpServer});
    if (!server.IsOk()) return SystemError(server.Error());
    CStatus status;
    {
        CQuorbelHTTPService service({*folders.Value(), trace, SystemClock(), searchIndex.Value().get()},
                                    *localMachine, std::move(stop));
        status = service.Run();
    }
    work.Value()->Stop();
    work.Value()->Wait();
    return status;
}

/// The service's life, from the registry on.
CStatus RunOverRegistry() {
    RETURN_IF_SYSTEM_ERROR(RaiseOpenFileLimit());
    auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return SystemError(stop.Error());
    RETURN_IF_SYSTEM_ERROR(SetOnStopSignals(stop.Value()));
    const auto registry = OpenRootRegistry();
    if (!registry.IsOk()) return SystemError(registry.Error(), L"registry");
    const auto localMachine = registry.Value()->LocalMachine();
    RETURN_IF_FAILED(CEventLog::Instance().Register(CQuorbelHTTPService::kDisplayName, *localMachine));
    const auto program = ProgramPath();
    if (!program.IsOk()) return SystemError(program.Error());
    CServiceLogger trace;
    RETURN_IF_FAILED(SetUpTrace(trace, program.Value()));
    std::unique_ptr<CCrashReports> reports;
    RETURN_IF_FAILED(SetUpCrashReports(trace, *localMachine, reports));
    CEventLog::Instance().ReportMessage(message::kServiceStarted, {CQuorbelHTTPService::kDisplayName});
    CStatus status = Serve(*registry.Value(), trace, stop.Value());
    CEventLog::Instance().ReportMessage(message::kServiceStopping, {CQuorbelHTTPService::kDisplayName});
    return status;
}

/// Everything between the command line and the exit code.
CStatus RunInForeground() {
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return SystemError(root.Error(), L"root folder");
    SetUpEventSink(root.Value());
    RETURN_IF_FAILED(CFaultResponse::Instance().SetUp());
    CStatus status = RunOverRegistry();
    status.Report();
    return status;
}

}  // namespace

}  // namespace quorbel

int main(int count, char** arguments) {
    using namespace quorbel;
    const std::wstring argument = count == 2 ? FromUtf8(arguments[1]) : L"";
    if (IsFlag(argument, L"help") || argument == L"--help") {
        std::cout << kUsage;
        return 0;
    }
    if (!IsFlag(argument, L"debug")) {
        std::cerr << "QBHTTPService: expected the parameter -debug\n" << kUsage;
        return 1;
    }
    const CStatus status = RunInForeground();
    if (status.IsOk()) return 0;
    std::cerr << "QBHTTPService: " << ToVisibleUtf8(status.Text()) << "\n";
    return 1;
}
