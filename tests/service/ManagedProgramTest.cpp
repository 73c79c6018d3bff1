#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "tests/support/service/ServiceFixture.h"
#include "tests/support/service/Subprocess.h"

namespace quorbel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Stands in for the service manager: the socket that a service reports its state to.
class CNotifySocket {
 public:
    explicit CNotifySocket(const std::filesystem::path& path)
        : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.string().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    /// The next report; empty when none comes.
    std::string Next(std::chrono::milliseconds patience = std::chrono::seconds(60)) {
        pollfd entry{m_socket.Get(), POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(patience.count())) != 1) return {};
        std::array<char, 4096> buffer{};
        const ssize_t size = ::recv(m_socket.Get(), buffer.data(), buffer.size(), 0);
        return {buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }
    /// The first lines of the reports that came.
    std::vector<std::string> All() {
        std::vector<std::string> lines;
        for (std::string report = Next({}); !report.empty(); report = Next({}))
            lines.push_back(report.substr(0, report.find('\n')));
        return lines;
    }

 private:
    const CFileDescriptor m_socket;
};

/// The built program under a service manager's protocol.
class CManagedProgramTest : public ::testing::Test {
 protected:
    CManagedProgramTest() { WriteFile(m_root / "site/.GET.txt", "home"); }

    void AddHost(int port) {
        ASSERT_EQ(RunProgram("qbctl",
                             {"host", "add", "127.0.0.1", "--protocol", "http", "--port",
                              std::to_string(port), "--user-root", (m_root / "site").string()},
                             {{"QUORBEL_ROOT", m_root.Path().string()}}),
                  0);
    }
    std::unique_ptr<CSubprocess> Start() {
        return std::make_unique<CSubprocess>("QBHTTPService", std::vector<std::string>{},
                                             Environment{{"QUORBEL_ROOT", m_root.Path().string()},
                                                         {"NOTIFY_SOCKET", (m_root / "notify").string()}},
                                             m_root / "out", m_root / "err", "/dev/null", std::nullopt,
                                             std::nullopt, StartedBy::ServiceManager);
    }
    void WaitUntilRunning() {
        EXPECT_EQ(m_manager.Next(), "STATUS=Starting\nEXTEND_TIMEOUT_USEC=3000000\n");
        EXPECT_EQ(m_manager.Next(), "READY=1\nSTATUS=Running\n");
    }
    static void WaitUntilServing(int port) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!CHttpConnection(port).IsConnected()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the service never listened";
            std::this_thread::yield();
        }
    }

    CTemporaryFolder m_root;
    CNotifySocket m_manager{m_root / "notify"};
};

TEST_F(CManagedProgramTest, ReportsItsStatesAndStopsOnRequest) {
    const int port = FreePort();
    AddHost(port);
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto service = Start();
        WaitUntilRunning();
        WaitUntilServing(port);
        EXPECT_EQ(CHttpConnection(port).Request("GET", "/")->body, "home");
        service->Signal(signal);
        EXPECT_EQ(service->Wait(), 0);
        EXPECT_THAT(m_manager.All(), ElementsAre("STOPPING=1", "STOPPING=1"));
        EXPECT_THAT(ReadFile(m_root / "err"), IsEmpty());
    }
}

TEST_F(CManagedProgramTest, StopsOnceHoweverOftenItIsAskedAndHoweverEarly) {
    AddHost(FreePort());
    const auto service = Start();
    EXPECT_EQ(m_manager.Next(), "STATUS=Starting\nEXTEND_TIMEOUT_USEC=3000000\n");
    for (int i = 0; i < 3; ++i) service->Signal(SIGTERM);
    EXPECT_EQ(service->Wait(), 0);
    EXPECT_THAT(m_manager.All(), ElementsAre("READY=1", "STOPPING=1", "STOPPING=1"));
}

TEST_F(CManagedProgramTest, EndsWithFailureWhenItCannotServe) {
    const auto service = Start();
    WaitUntilRunning();
    EXPECT_EQ(service->Wait(), 1);
    EXPECT_THAT(m_manager.All(), ElementsAre("STOPPING=1"));
    EXPECT_THAT(ReadFile(m_root / "err"), HasSubstr("qbctl host add"));
}

TEST_F(CManagedProgramTest, ReportsNothingWhenItIsNotPrepared) {
    WriteFile(m_root / "registry/registry.db", std::string(8192, 'x'));
    EXPECT_EQ(Start()->Wait(), 1);
    EXPECT_THAT(m_manager.All(), IsEmpty());
    EXPECT_THAT(ReadFile(m_root / "err"), HasSubstr("(registry)"));
}

TEST_F(CManagedProgramTest, StopsUnderLoad) {
    const int port = FreePort();
    AddHost(port);
    const auto service = Start();
    WaitUntilRunning();
    WaitUntilServing(port);
    std::vector<std::thread> clients;
    std::atomic<int> answered = 0;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([port, &answered] {
            CHttpConnection connection(port);
            // Until the connection is cut off.
            while (connection.IsConnected() && connection.Request("GET", "/")) ++answered;
        });
    }
    while (answered < 100) std::this_thread::yield();
    service->Signal(SIGTERM);
    EXPECT_EQ(service->Wait(), 0);
    for (std::thread& client : clients) client.join();
}

}  // namespace
}  // namespace quorbel
