#include "platform/service_manager/SystemdDatabase.h"
#include "platform/service_manager/SystemdManager.h"
#include "platform/service_manager/UnitFile.h"
#include "tests/support/TemporaryFolder.h"

namespace quorbel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// Keeps what it was asked for, and fails when told to.
class CFakeBus final : public ISystemdBus {
 public:
    std::vector<std::string> calls;
    std::string failing;  ///< the call that fails
    std::string loadState = "not-found";
    std::string activeState = "inactive";

    ErrorCode Reload() override { return Call("reload"); }
    ErrorCode Enable(const std::string& unit) override { return Call("enable " + unit); }
    ErrorCode Disable(const std::string& unit) override { return Call("disable " + unit); }
    ErrorCode Stop(const std::string& unit) override { return Call("stop " + unit); }
    ErrorCode ResetFailed(const std::string& unit) override { return Call("reset " + unit); }
    CResult<std::string> LoadState(const std::string& /*unit*/) override { return State("load", loadState); }
    CResult<std::string> ActiveState(const std::string& /*unit*/) override {
        return State("active", activeState);
    }

 private:
    ErrorCode Call(const std::string& call) {
        calls.push_back(call);
        return call == failing ? ErrorCode::Timeout : ErrorCode::Success;
    }
    CResult<std::string> State(const std::string& call, const std::string& state) const {
        if (call == failing) return ErrorCode::Timeout;
        return state;
    }
};

class SystemdDatabaseTest : public ::testing::Test {
 protected:
    bool IsEmpty() const { return std::filesystem::is_empty(m_folder.Path()); }

    const CServiceDescription m_description{L"Served", L"100 % Served", "/opt/a \"b\" 5%/Served"};
    const CTemporaryFolder m_folder;
    const std::shared_ptr<CFakeBus> m_bus = std::make_shared<CFakeBus>();
    CSystemdDatabase m_database{m_bus, m_folder.Path()};
};

TEST_F(SystemdDatabaseTest, CreatesAUnitThatStartsWithTheSystem) {
    ASSERT_EQ(m_database.Create(m_description), ErrorCode::Success);
    EXPECT_THAT(m_bus->calls, ElementsAre("enable Served.service", "reload"));
    const std::string unit = ReadFile(m_folder / "Served.service");
    EXPECT_THAT(unit, HasSubstr("\nDescription=100 %% Served\n"));
    EXPECT_THAT(unit, HasSubstr("\nExecStart=\"/opt/a \\\"b\\\" 5%%/Served\"\n"));
    EXPECT_THAT(unit, HasSubstr("\nWantedBy=multi-user.target\n"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.Path()), {}), 1);
}

TEST_F(SystemdDatabaseTest, WritesAUnitOverWhatAnInterruptedInstallationLeft) {
    WriteFile(m_folder / ".Served.service.new", "half a un");
    EXPECT_EQ(m_database.Create(m_description), ErrorCode::Success);
    EXPECT_THAT(ReadFile(m_folder / "Served.service"), HasSubstr("[Install]"));
}

TEST_F(SystemdDatabaseTest, LeavesNothingOfAnInstallationThatFails) {
    struct CCase {
        const char* failing;
        std::vector<std::string> calls;
    };
    const std::vector<std::string> undone{"disable Served.service", "reload"};
    for (const CCase& row : std::vector<CCase>{
             {"load", {}},
             {"enable Served.service", {"enable Served.service", undone[0], undone[1]}},
             {"reload", {"enable Served.service", "reload", undone[0], undone[1]}},
         }) {
        m_bus->calls.clear();
        m_bus->failing = row.failing;
        EXPECT_EQ(m_database.Create(m_description), ErrorCode::Timeout) << row.failing;
        EXPECT_EQ(m_bus->calls, row.calls);
        EXPECT_TRUE(IsEmpty()) << row.failing;
    }
}

TEST_F(SystemdDatabaseTest, InstallsNoNameTwice) {
    for (const char* state : {"loaded", "masked", "bad-setting"}) {
        m_bus->loadState = state;
        EXPECT_EQ(m_database.Create(m_description), ErrorCode::ServiceExists) << state;
    }
    EXPECT_TRUE(IsEmpty());
    // systemd has not read it yet.
    m_bus->loadState = "not-found";
    WriteFile(m_folder / "Served.service", "an administrator's");
    EXPECT_EQ(m_database.Create(m_description), ErrorCode::ServiceExists);
    EXPECT_EQ(ReadFile(m_folder / "Served.service"), "an administrator's");
    EXPECT_TRUE(m_bus->calls.empty());
}

TEST_F(SystemdDatabaseTest, RefusesNamesThatCouldBecomeOtherSettings) {
    EXPECT_EQ(m_database.Create({L"Served", L"A\nUser=nobody", "/opt/served"}), ErrorCode::InvalidName);
    EXPECT_EQ(m_database.Create({L"Served", L"A", "/opt/b\nUser=nobody"}), ErrorCode::InvalidName);
    EXPECT_TRUE(IsEmpty());
}

TEST_F(SystemdDatabaseTest, StopsAndQueriesAndDeletesAServiceThatIsKnown) {
    ASSERT_EQ(m_database.Open(L"Served").Error(), ErrorCode::ServiceDoesNotExist);
    ASSERT_EQ(m_database.Create(m_description), ErrorCode::Success);
    m_bus->loadState = "loaded";
    const auto service = m_database.Open(L"Served").Value();
    EXPECT_EQ(service->Stop(), ErrorCode::ServiceNotActive);
    const std::pair<const char*, ServiceState> states[] = {
        {"inactive", ServiceState::Stopped},        {"failed", ServiceState::Stopped},
        {"activating", ServiceState::StartPending}, {"active", ServiceState::Running},
        {"reloading", ServiceState::Running},       {"deactivating", ServiceState::StopPending}};
    for (const auto& [active, state] : states) {
        m_bus->activeState = active;
        EXPECT_EQ(service->QueryState().Value(), state) << active;
    }
    m_bus->calls.clear();
    EXPECT_EQ(service->Stop(), ErrorCode::Success);
    EXPECT_EQ(service->Delete(), ErrorCode::Success);
    EXPECT_THAT(m_bus->calls, ElementsAre("stop Served.service", "disable Served.service", "reload",
                                          "reset Served.service"));
    EXPECT_TRUE(IsEmpty());
}

TEST_F(SystemdDatabaseTest, DeletesInASecondAttemptWhatTheFirstLeft) {
    for (const char* failing : {"disable Served.service", "reload"}) {
        m_bus->failing.clear();
        m_bus->loadState = "not-found";
        ASSERT_EQ(m_database.Create(m_description), ErrorCode::Success);
        m_bus->loadState = "loaded";
        m_bus->failing = failing;
        const auto service = m_database.Open(L"Served").Value();
        EXPECT_EQ(service->Delete(), ErrorCode::Timeout) << failing;
        m_bus->failing.clear();
        EXPECT_EQ(m_database.Open(L"Served").Value()->Delete(), ErrorCode::Success) << failing;
        EXPECT_TRUE(IsEmpty());
    }
}

TEST(SystemdNotification, TellsTheStateAndHowLongItMayTake) {
    struct CCase {
        CServiceStatus status;
        const char* text;
    };
    for (const CCase& row : {
             CCase{{.state = ServiceState::StartPending, .checkPoint = 1, .waitHint = 3000},
                   "STATUS=Starting\nEXTEND_TIMEOUT_USEC=3000000\n"},
             CCase{{.state = ServiceState::Running}, "READY=1\nSTATUS=Running\n"},
             CCase{{.state = ServiceState::StopPending, .checkPoint = 2}, "STOPPING=1\nSTATUS=Stopping\n"},
             CCase{{.state = ServiceState::Stopped}, "STOPPING=1\nSTATUS=Stopped\n"},
             CCase{{.state = ServiceState::Stopped, .exitCode = 5},
                   "STOPPING=1\nSTATUS=Stopped with error 5: Access is denied.\n"},
             CCase{{.state = ServiceState::Stopped, .exitCode = 4'000'000'000},
                   "STOPPING=1\nSTATUS=Stopped with error 4000000000\n"},
         })
        EXPECT_EQ(NotificationOf(row.status), row.text);
}

TEST(SystemdManager, RunsNoServiceInAProcessThatSystemdDidNotStart) {
    const IServiceManager::TableEntry table[] = {{L"Served", [] { ADD_FAILURE() << "ran"; }},
                                                 {nullptr, nullptr}};
    EXPECT_EQ(CreateSystemdManager().Value()->RunDispatcher(table),
              ErrorCode::ServiceControllerConnectFailed);
}

}  // namespace
}  // namespace quorbel
