#include <sstream>

#include "LibService/WinService.h"
#include "platform/Thread.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/FakeServiceHost.h"
#include "tests/support/HandClock.h"

namespace quorbel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Its work does nothing.
class CTestService final : public CWinService {
 public:
    CTestService(CScript& script, std::vector<std::wstring> parameters, CHost host)
        : CWinService(L"Served", L"Served Well", std::move(parameters), std::move(host)), m_script(script) {}

    std::function<void()> whileWaiting = [] {};
    std::uint32_t exitCode = 0;

    CStatus Start() override { return m_script.StatusOf("start"); }
    void Stop() override { m_script.calls.push_back("end"); }
    std::uint32_t Wait(std::optional<std::chrono::milliseconds> timeout) override {
        EXPECT_FALSE(timeout);
        m_script.calls.push_back("wait");
        whileWaiting();
        return exitCode;
    }
    bool IsRunning() const override { return false; }
    std::uint32_t OnDeviceEvent(std::uint32_t eventType, void* /*eventData*/) override {
        return eventType + 7;
    }
    CStatus StartApiConnection(const CWorkItems::Work& /*serve*/) override { return {}; }
    const char* TraceName() const override { return "Test"; }

    using CWinService::NoteEndOfWork;

 private:
    CScript& m_script;
};

class WinServiceTest : public ::testing::Test {
 protected:
    CTestService& Make(const std::vector<std::wstring>& parameters, bool isStartedByManager = false) {
        m_service.reset();
        m_script.calls.clear();
        m_manager.reported.clear();
        m_errors.str({});
        m_service = std::make_unique<CTestService>(
            m_script, parameters,
            CWinService::CHost{.manager = m_manager,
                               .dialogs = m_dialogs,
                               .preparation = m_preparation,
                               .clock = m_clock,
                               .output = m_output,
                               .errors = m_errors,
                               .isStartedByManager = isStartedByManager,
                               .setOnStopSignals =
                                   [this](const std::shared_ptr<CEvent>& event) {
                                       m_signalled = event;
                                       m_isSignalledSet->Set();
                                       return ErrorCode::Success;
                                   },
                               .startThread = StartThread});
        return *m_service;
    }
    int Execute(const std::vector<std::wstring>& parameters, bool isStartedByManager = false) {
        return Make(parameters, isStartedByManager).Execute();
    }

    CRecordedEventLog m_events;
    CHandClock m_clock;
    CScript m_script;
    CFakeServiceManager m_manager{m_script};
    CFakePreparation m_preparation{m_script};
    CFakeDialogs m_dialogs{m_script};
    std::shared_ptr<CEvent> m_signalled;
    const std::shared_ptr<CEvent> m_isSignalledSet = CEvent::Create(EventReset::Auto).Value();
    std::ostringstream m_output;
    std::ostringstream m_errors;
    std::unique_ptr<CTestService> m_service;
};

TEST(ServiceCommandLine, TakesFlagsWithoutRegardToCaseAndKeepsTheFirstThatItDoesNotKnow) {
    struct CCase {
        std::vector<std::wstring> parameters;
        ShellCommand command;
        bool isDebug;
        bool runsUnderManager;
        std::wstring invalid;
    };
    for (const CCase& row : std::vector<CCase>{
             {{}, ShellCommand::None, false, true, L""},
             {{L"-INSTALL"}, ShellCommand::Install, false, false, L""},
             {{L"/install"}, ShellCommand::Install, false, false, L""},
             {{L"-remove"}, ShellCommand::Remove, false, false, L""},
             {{L"/Debug"}, ShellCommand::None, true, false, L""},
             {{L"-debug", L"-remove"}, ShellCommand::Remove, true, false, L""},
             {{L"--help"}, ShellCommand::Help, false, false, L""},
             {{L"-help"}, ShellCommand::Help, false, false, L""},
             {{L"-x"}, ShellCommand::Invalid, false, true, L"x"},
             {{L"/x", L"-y"}, ShellCommand::Invalid, false, true, L"x"},
             {{L"install"}, ShellCommand::Invalid, false, true, L"install"},
             {{L"--install"}, ShellCommand::Invalid, false, true, L"-install"},
             {{L"-install "}, ShellCommand::Invalid, false, true, L"install "},
             {{L"", L"x"}, ShellCommand::Invalid, false, true, L""},
             {{L"-"}, ShellCommand::Invalid, false, true, L""},
             {{L"-debug", L"-x"}, ShellCommand::Invalid, true, false, L"x"},
             {{L"-x", L"-install"}, ShellCommand::Install, false, false, L"x"},
         }) {
        CWinService::CServiceCommandLineInfo info(true);
        ParseCommandLine(row.parameters, info);
        const std::string shown = ::testing::PrintToString(row.parameters);
        EXPECT_EQ(info.Command(), row.command) << shown;
        EXPECT_EQ(info.IsDebug(), row.isDebug) << shown;
        EXPECT_EQ(info.RunsUnderManager(), row.runsUnderManager) << shown;
        EXPECT_EQ(info.InvalidParameter(), row.invalid) << shown;
    }
}

TEST_F(WinServiceTest, InstallsTheProgramThatRuns) {
    EXPECT_EQ(Execute({L"-install"}), 0);
    EXPECT_THAT(m_script.calls, ElementsAre("manager", "create Served, Served Well, host_tests"));
    EXPECT_THAT(m_errors.str(), IsEmpty());
}

TEST_F(WinServiceTest, EndsWithTheErrorOfTheStepThatFails) {
    struct CCase {
        std::vector<std::wstring> parameters;
        bool isStartedByManager;
        std::string failing;
        std::vector<std::string> calls;
    };
    const std::string create = "create Served, Served Well, host_tests";
    for (const CCase& row : std::vector<CCase>{
             {{L"-install"}, false, "manager", {"manager"}},
             {{L"-install"}, false, create, {"manager", create}},
             {{L"-remove"}, false, "manager", {"manager"}},
             {{L"-remove"}, false, "open Served", {"manager", "open Served"}},
             {{L"-remove"}, false, "delete", {"manager", "open Served", "stop", "query", "delete"}},
             {{L"-debug"}, false, "event source", {"event log on stderr", "event source"}},
             {{L"-debug"}, false, "tracing", {"event log on stderr", "event source", "tracing"}},
             {{L"-debug"}, false, "start", {"event log on stderr", "event source", "tracing", "start"}},
             {{}, true, "event source", {"event log", "event source"}},
             {{}, true, "dispatch Served", {"event log", "event source", "tracing", "dispatch Served"}},
         }) {
        m_script.failing = row.failing;
        m_manager.states = {ServiceState::Stopped};
        EXPECT_EQ(Execute(row.parameters, row.isStartedByManager), 1) << row.failing;
        // The event log is asked for once more, as nothing says that it is open.
        std::vector<std::string> calls = row.calls;
        calls.emplace_back("event log");
        EXPECT_EQ(m_script.calls, calls);
        EXPECT_EQ(m_errors.str(), "Served: Access is denied\n");
        const auto events = m_events.Take();
        ASSERT_EQ(events.size(), 1U) << row.failing;
        EXPECT_EQ(events[0].strings[0], L"5");
    }
}

TEST_F(WinServiceTest, RemovesAServiceOnceItHasStoppedAskingEverySecond) {
    m_manager.states = {ServiceState::StopPending, ServiceState::StopPending, ServiceState::Stopped};
    m_clock.RunFreely(false);
    CTestService& service = Make({L"-remove"});
    int exitCode = -1;
    std::thread thread;
    const auto turn = [this](std::chrono::milliseconds by) {
        return m_clock.PausesAfter([this, by] { m_clock.Turn(by); });
    };
    ASSERT_TRUE(m_clock.PausesAfter([&] { thread = std::thread([&] { exitCode = service.Execute(); }); }));
    EXPECT_TRUE(turn(CWinService::kStopPollPause));
    EXPECT_TRUE(turn(CWinService::kStopPollPause));
    m_clock.Turn(CWinService::kStopPollPause);
    thread.join();
    EXPECT_EQ(exitCode, 0);
    EXPECT_THAT(m_script.calls,
                ElementsAre("manager", "open Served", "stop", "query", "query", "query", "delete"));
}

TEST_F(WinServiceTest, RemovesAServiceThatCannotBeStoppedOrAskedAtOnce) {
    m_script.failing = "stop";
    EXPECT_EQ(Execute({L"-remove"}), 0);
    EXPECT_THAT(m_script.calls, ElementsAre("manager", "open Served", "stop", "delete"));
    m_script.failing = "query";
    EXPECT_EQ(Execute({L"-remove"}), 0);
    EXPECT_THAT(m_script.calls, ElementsAre("manager", "open Served", "stop", "query", "delete"));
}

TEST_F(WinServiceTest, ReportsItsWayFromStartToStop) {
    CTestService& service = Make({}, true);
    service.exitCode = 13;
    service.whileWaiting = [this] { EXPECT_EQ(m_manager.Control(1), 0U); };
    EXPECT_EQ(service.Execute(), 0);
    EXPECT_THAT(m_script.calls, ElementsAre("event log", "event source", "tracing", "dispatch Served",
                                            "handler Served", "start", "wait", "end"));
    const std::vector<CServiceStatus> reports{
        {.state = ServiceState::StartPending, .checkPoint = 1, .waitHint = 3000},
        {.state = ServiceState::Running, .accepted = kAcceptStop | kAcceptShutdown},
        {.state = ServiceState::StopPending, .checkPoint = 2},
        {.state = ServiceState::Stopped, .exitCode = 13}};
    EXPECT_EQ(m_manager.reported, reports);
}

TEST_F(WinServiceTest, StopsWithTheNumberOfTheErrorThatKeptItFromStarting) {
    m_script.failing = "start";
    EXPECT_EQ(Execute({}, true), 1);
    EXPECT_EQ(m_manager.reported.back(), (CServiceStatus{.state = ServiceState::Stopped,
                                                         .exitCode = ToNumber(ErrorCode::AccessDenied)}));
    EXPECT_THAT(m_errors.str(), HasSubstr("Access is denied"));
    EXPECT_EQ(m_events.Take().size(), 1U);
}

TEST_F(WinServiceTest, ReportsNothingWhenItCannotBeGivenControls) {
    m_script.failing = "handler Served";
    EXPECT_EQ(Execute({}, true), 1);
    EXPECT_THAT(m_manager.reported, IsEmpty());
    EXPECT_EQ(m_script.calls.back(), "handler Served");
}

TEST_F(WinServiceTest, AnswersControls) {
    CTestService& service = Make({}, true);
    const CServiceStatus running{.state = ServiceState::Running, .accepted = kAcceptStop | kAcceptShutdown};
    service.whileWaiting = [&] {
        EXPECT_EQ(m_manager.Control(4), 0U);
        EXPECT_EQ(m_manager.reported.back(), running);
        EXPECT_EQ(service.HandlerEx(11, 5, nullptr), 12U);
        for (const std::uint32_t control : {0U, 2U, 3U, 6U, 128U})
            EXPECT_EQ(m_manager.Control(control), 120U);
        EXPECT_EQ(m_manager.reported.size(), 3U);
        EXPECT_EQ(m_manager.Control(5), 0U);
        EXPECT_EQ(m_script.calls.back(), "end");
        EXPECT_EQ(m_manager.Control(4), 0U);
        EXPECT_EQ(m_manager.reported.back(),
                  (CServiceStatus{.state = ServiceState::StopPending, .checkPoint = 3}));
    };
    EXPECT_EQ(service.Execute(), 0);
    // What comes when it has stopped changes nothing.
    const std::size_t count = m_manager.reported.size();
    EXPECT_EQ(m_manager.Control(1), 0U);
    EXPECT_EQ(m_manager.reported.size(), count);
    m_service.reset();
    EXPECT_EQ(m_manager.Control(1), 120U);
}

TEST_F(WinServiceTest, InDebugModeWorksUntilTheWindowIsClosed) {
    EXPECT_EQ(Execute({L"-debug"}), 0);
    EXPECT_THAT(m_script.calls, ElementsAre("event log on stderr", "event source", "tracing", "start",
                                            "activity of Served", "end", "wait"));
}

TEST_F(WinServiceTest, InDebugModeWithoutDisplayWorksUntilASignalOrTheEndOfTheWork) {
    m_dialogs.outcome = DialogOutcome::NoDisplay;
    for (const bool isSignal : {true, false}) {
        CTestService& service = Make({L"-debug"});
        std::thread thread([&] { EXPECT_EQ(service.Execute(), 0); });
        ASSERT_TRUE(WaitForAny({m_isSignalledSet.get()}).IsOk());
        if (isSignal) {
            m_signalled->Set();
        } else {
            service.NoteEndOfWork();
        }
        thread.join();
        EXPECT_EQ(m_script.calls.back(), "wait");
    }
}

TEST_F(WinServiceTest, WithoutParametersShowsTheActivityAndStartsNothing) {
    EXPECT_EQ(Execute({}), 0);
    EXPECT_THAT(m_script.calls, ElementsAre("activity of Served"));
    m_dialogs.outcome = DialogOutcome::NoDisplay;
    EXPECT_EQ(Execute({}), 1);
    EXPECT_THAT(m_errors.str(), HasSubstr("-install"));
}

TEST_F(WinServiceTest, NamesAParameterThatItDoesNotKnow) {
    EXPECT_EQ(Execute({L"-x"}), 1);
    EXPECT_THAT(m_script.calls, ElementsAre("invalid x"));
    EXPECT_THAT(m_errors.str(), IsEmpty());
    m_dialogs.outcome = DialogOutcome::NoDisplay;
    EXPECT_EQ(Execute({L"-x"}), 1);
    EXPECT_THAT(m_errors.str(),
                ::testing::StartsWith("You have supplied an invalid command line parameter 'x'.\n"));
}

TEST_F(WinServiceTest, HelpsWithoutTouchingAnything) {
    EXPECT_EQ(Execute({L"--help"}), 0);
    EXPECT_THAT(m_script.calls, IsEmpty());
    EXPECT_THAT(m_output.str(), HasSubstr("Usage: Served -install"));
}

}  // namespace
}  // namespace quorbel
