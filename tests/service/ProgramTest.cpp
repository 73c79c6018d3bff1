#include <csignal>

#include "LibService/MessageIds.h"
#include "platform/eventlog/EventSink.h"
#include "tests/support/service/ServiceFixture.h"
#include "tests/support/service/Subprocess.h"

namespace quorbel {
namespace {

/// The built program over a root folder of its own.
class CProgramTest : public ::testing::Test {
 protected:
    CProgramTest() { WriteFile(m_root / "site/.GET.txt", "home"); }

    Environment Variables() const { return {{"QUORBEL_ROOT", m_root.Path().string()}}; }
    int Qbctl(const std::vector<std::string>& arguments) {
        return RunProgram("qbctl", arguments, Variables());
    }
    std::unique_ptr<CSubprocess> StartService(const std::vector<std::string>& arguments = {"-debug"}) {
        return std::make_unique<CSubprocess>("QBHTTPService", arguments, Variables(), m_root / "out",
                                             m_root / "err");
    }
    void AddHost(const std::string& host, int port) {
        ASSERT_EQ(Qbctl({"host", "add", host, "--protocol", "http", "--port", std::to_string(port),
                         "--user-root", (m_root / "site").string()}),
                  0);
    }
    static void WaitUntilServing(int port) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!CHttpConnection(port).IsConnected()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the service never listened";
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    std::vector<std::uint32_t> EventIds() const {
        std::vector<std::uint32_t> ids;
        for (const CEventEntry& entry : ReadEventFiles(m_root.Path())) ids.push_back(entry.id);
        return ids;
    }

    CTemporaryFolder m_root;
};

TEST_F(CProgramTest, ServesUntilASignalAsksItToStop) {
    const int port = FreePort();
    AddHost("127.0.0.1", port);
    for (int number : {SIGINT, SIGTERM}) {
        auto service = StartService();
        WaitUntilServing(port);
        EXPECT_EQ(CHttpConnection(port).Request("GET", "/")->body, "home");
        service->Signal(number);
        EXPECT_EQ(service->Wait(), 0);
    }
    EXPECT_THAT(EventIds(), ::testing::ElementsAre(message::kServiceStarted, message::kServiceStopping,
                                                   message::kServiceStarted, message::kServiceStopping));
}

TEST_F(CProgramTest, StartsAgainAfterItWasKilled) {
    const int port = FreePort();
    AddHost("127.0.0.1", port);
    auto service = StartService();
    WaitUntilServing(port);
    service->Signal(SIGKILL);
    EXPECT_EQ(service->Wait(), -SIGKILL);
    service = StartService();
    WaitUntilServing(port);
    EXPECT_EQ(CHttpConnection(port).Request("GET", "/")->body, "home");
}

TEST_F(CProgramTest, FailuresEndWithOneAndSayWhy) {
    const auto fails = [this](const std::vector<std::string>& arguments, const char* said) {
        EXPECT_EQ(StartService(arguments)->Wait(), 1);
        EXPECT_THAT(ReadFile(m_root / "err"), ::testing::HasSubstr(said));
    };
    fails({"-x"}, "invalid command line parameter 'x'");
    fails({}, "QBHTTPService: ");
    fails({"-debug"}, "qbctl host add");
    ASSERT_EQ(Qbctl({"host", "add", "localhost", "--user-root", "/nowhere", "--protocol", "http"}), 0);
    fails({"-debug"}, "/nowhere");
    WriteFile(m_root / "registry/registry.db", std::string(8192, 'x'));
    fails({"-debug"}, "registry");
}

TEST_F(CProgramTest, AFullEventLogDiskDoesNotStopIt) {
    const int port = FreePort();
    AddHost("127.0.0.1", port);
    std::filesystem::create_symlink("/dev/full", m_root / "events.jsonl");
    auto service = StartService();
    WaitUntilServing(port);
    CHttpConnection connection(port);
    EXPECT_EQ(connection.Request("GET", "/missing")->status, 404);
    EXPECT_EQ(connection.Request("GET", "/")->body, "home");
    service->Signal(SIGTERM);
    EXPECT_EQ(service->Wait(), 0);
}

}  // namespace
}  // namespace quorbel
