#include <gmock/gmock.h>

#include "LibService/CrashReports.h"
#include "LibService/FaultResponse.h"
#include "LibService/MessageIds.h"
#include "data/SQLRequestHandler.h"
#include "http/RequestHandlerFactory.h"
#include "platform/Precondition.h"
#include "platform/com/ClassRegistry.h"
#include "platform/oledb/DataInitialize.h"
#include "tests/support/Faults.h"
#include "tests/support/service/FakeProvider.h"
#include "tests/support/service/ServiceFixture.h"

#ifdef __SANITIZE_THREAD__
constexpr bool kThreadSanitizerInService = true;
#else
constexpr bool kThreadSanitizerInService = false;
#endif

namespace quorbel {
namespace {

using testing::HasSubstr;
using web::http::http_request;

std::mutex g_heldByHandler;

void FaultWithLock() {
    const std::lock_guard lock(g_heldByHandler);
    WriteToNull();
}

void BreakContract() {
    Require(false);
}

void NoFault() {}

const std::map<std::wstring, void (*)()> kFaults{
    {L"write", WriteToNull},  {L"divide", DivideByZero},    {L"trap", Trap},    {L"call", CallNull},
    {L"lock", FaultWithLock}, {L"contract", BreakContract}, {L"none", NoFault},
};

/// "write" of ".../write.GET.fault" and ".../query-write.GET.query".
void FaultAsNamed(const std::wstring& file) {
    std::wstring name = file.substr(file.find_last_of(L"/\\") + 1);
    if (name.starts_with(L"query-")) name.erase(0, 6);
    kFaults.at(name.substr(0, name.find(L'.')))();
}

/// Faults in the handler itself: of the file's name.
class CFaultingHandler final : public CHTTPServer::CRequestHandler {
 public:
    explicit CFaultingHandler(std::wstring file) : m_file(std::move(file)) {}
    std::shared_ptr<CResponse> CreateResponse(const http_request&, const UserIdentity&,
                                              const TextMap&) override {
        FaultAsNamed(m_file);
        return std::make_shared<CNothing>();
    }

 private:
    class CNothing final : public CResponse {
        std::uint16_t StatusCode() override { return 204; }
    };
    const std::wstring m_file;
};

/// Faults in the work of a query.
class CFaultingQuery final : public CSQLRequestInstance, public CHTTPServer::CRequestHandler {
 public:
    using CSQLRequestInstance::CSQLRequestInstance;
    std::shared_ptr<CResponse> CreateResponse(const http_request& request, const UserIdentity&,
                                              const TextMap&) override {
        auto response = std::make_shared<CFaulting>(queryFile, m_shared);
        response->Start(root, request, {});
        return response;
    }

 private:
    class CFaulting final : public CSQLRequestInstance::Response {
     public:
        using CSQLRequestInstance::Response::Response;
        void OpenQuery(Results::QueryInfo& query) override {
            OpenSource(query, L"Provider=Fake", message::kDataSourceUnavailable);
            CComPtr<IUnknown> unused;
            Ignore(query.Execute(L"SELECT", IID_NULL, unused.Receive()));
            FaultAsNamed(m_queryFile);
            throw std::system_error(ENOENT, std::system_category());
        }
    };
};

class FaultsInRequests : public CServiceFixture {
 protected:
    FaultsInRequests() : m_initialize(RegisterDataInitialize()), m_provider(RegisterFakeProvider(m_fake)) {
        CRequestHandlerFactory::Register(L"fault", [](const std::wstring&, const std::wstring& file) {
            return std::make_shared<CFaultingHandler>(file);
        });
        const auto shared = std::make_shared<CSQLRequestInstance::Shared>(m_clock);
        CRequestHandlerFactory::Register(L"query",
                                         [shared](const std::wstring& folder, const std::wstring& file) {
                                             return std::make_shared<CFaultingQuery>(folder, file, shared);
                                         });
    }
    void SetUp() override {
        if (kThreadSanitizerInService)
            GTEST_SKIP()
                << "the thread sanitizer takes a thread whose handler threw for one that is still in it";
        ASSERT_TRUE(CFaultResponse::Instance().SetUp().IsOk());
        std::filesystem::create_directory(m_folder / "dumps");
        ASSERT_TRUE(CCrashReports::Create({.folder = m_folder / "dumps",
                                           .serviceName = L"Test",
                                           .afterDump = [this] { ++m_saved; },
                                           .helper = std::string(QUORBEL_PROGRAMS) + "/QbMiniDump.exe"},
                                          m_reports)
                        .IsOk());
        for (const auto& [name, fault] : kFaults) {
            for (const char* const kind : {".GET.fault", ".POST.fault"})
                WriteFile(m_folder / "root" / (ToUtf8(name) + kind), "");
            WriteFile(m_folder / "root" / ("query-" + ToUtf8(name) + ".GET.query"), "");
        }
        m_port = AddDefaultHost();
        Start();
    }
    void TearDown() override {
        End();
        m_reports.reset();
    }
    std::vector<std::filesystem::path> Dumps() const {
        std::vector<std::filesystem::path> dumps;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder / "dumps"))
            dumps.push_back(entry);
        return dumps;
    }
    void ExpectFaultEvent(const std::string& source) {
        const auto events = m_events.Take();
        ASSERT_EQ(events.size(), 1U);
        EXPECT_EQ(events[0].id, message::kCaughtException);
        EXPECT_EQ(events[0].source, source);
    }

    const std::shared_ptr<CFakeQuery> m_fake = std::make_shared<CFakeQuery>();
    const CComRegistration m_initialize;
    const CComRegistration m_provider;
    std::unique_ptr<CCrashReports> m_reports;
    std::atomic<int> m_saved = 0;
    int m_port = 0;
};

TEST_F(FaultsInRequests, EndTheRequestAloneWithADumpAndAnEvent) {
    m_events.Take();
    int faults = 0;
    for (const char* const name : {"write", "divide", "trap", "call", "lock", "contract"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Get(m_port, "/" + std::string(name)).status, 500);
        ExpectFaultEvent("Listener.cpp");
        EXPECT_EQ(Dumps().size(), static_cast<std::size_t>(++faults));
        EXPECT_EQ(Get(m_port, "/none").status, 204);
    }
    const auto form = CHttpConnection(m_port).Request(
        "POST", "/write", "Content-Type: application/x-www-form-urlencoded\r\n", "a=b");
    ASSERT_TRUE(form.has_value());
    EXPECT_EQ(form->status, 500);
    ExpectFaultEvent("Listener.cpp");
    EXPECT_TRUE(g_heldByHandler.try_lock()) << "what a fault held is free";
    g_heldByHandler.unlock();
    WaitUntil([&] { return m_saved == faults + 1; }, "the trace to be saved after each dump");
}

TEST_F(FaultsInRequests, InAQueryEndThatQuery) {
    m_events.Take();
    // In the provider, behind its interfaces, while the command runs.
    m_fake->onExecute = [](ICommand&) { WriteToNull(); };
    EXPECT_EQ(Get(m_port, "/query-none", "Accept: application/json\r\n").status, 500);
    ExpectFaultEvent("ResultStream.cpp");
    m_fake->onExecute = nullptr;
    EXPECT_EQ(Get(m_port, "/query-none", "Accept: application/json\r\n").status, 404);
    EXPECT_TRUE(m_events.Take().empty());
}

TEST_F(FaultsInRequests, AreSeenInTheDebugger) {
    EXPECT_EQ(Get(m_port, "/write").status, 500);
    ASSERT_EQ(Dumps().size(), 1U);
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    const std::string command =
        "DEBUGINFOD_URLS= gdb -nx -batch -ex 'bt 4' '" + program + "' '" + Dumps()[0].native() + "' 2>&1";
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), ::pclose);
    std::string text(100'000, '\0');
    text.resize(::fread(text.data(), 1, text.size(), output.get()));
    EXPECT_THAT(text, HasSubstr("WriteToNull"));
    EXPECT_THAT(text, HasSubstr("CListener::OnGet"));
}

}  // namespace
}  // namespace quorbel
