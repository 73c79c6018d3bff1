#include <pthread.h>
#include <sstream>

#include "LibService/EventLog.h"
#include "LibService/MessageIds.h"
#include "LibService/ServiceApp.h"
#include "platform/Thread.h"
#include "tests/support/EventRecorder.h"
#include "tests/support/FakeServiceHost.h"
#include "tests/support/HandClock.h"

namespace quorbel {
namespace {

using ::testing::ElementsAre;

/// Keeps the identifiers of the records.
class CIdRecorder final : public CTraceLogger {
 public:
    void Trace(const CTraceLoggable& /*object*/, std::uint32_t id,
               std::initializer_list<TraceArgument> /*arguments*/) override {
        const std::lock_guard lock(m_lock);
        m_ids.push_back(id);
    }
    void TraceNoSave(const CTraceLoggable& object, std::uint32_t id,
                     std::initializer_list<TraceArgument> arguments) override {
        Trace(object, id, arguments);
    }
    std::vector<std::uint32_t> Ids() const {
        const std::lock_guard lock(m_lock);
        return m_ids;
    }

 private:
    mutable std::mutex m_lock;
    std::vector<std::uint32_t> m_ids;
};

/// Its routine is a test's.
class CRoutineApp final : public CServiceApp {
 public:
    CRoutineApp(CHost host, CTraceLogger& trace, CItems items)
        : CServiceApp(L"Served", L"Served Well", {}, std::move(host), trace, std::move(items)) {}

    std::function<CStatus(CRoutineApp&)> routine = [](CRoutineApp&) { return CStatus(); };
    CStatus Run() override { return routine(*this); }

    using CServiceApp::StopEvent;
};

class ServiceAppTest : public ::testing::Test {
 protected:
    /// Runs the service under the manager, to its end.
    int Execute(const std::function<CStatus(CRoutineApp&)>& routine) {
        CRoutineApp app({.manager = m_manager,
                         .dialogs = m_dialogs,
                         .preparation = m_preparation,
                         .clock = m_clock,
                         .output = m_errors,
                         .errors = m_errors,
                         .isStartedByManager = true,
                         .startThread = m_starter},
                        m_trace, m_items);
        app.routine = routine;
        return app.Execute();
    }
    std::vector<std::uint32_t> EventIds() {
        std::vector<std::uint32_t> ids;
        for (const CEventEntry& entry : m_events.Take()) ids.push_back(entry.id);
        return ids;
    }
    std::uint32_t ExitCode() const { return m_manager.reported.back().exitCode; }

    CRecordedEventLog m_events;
    CIdRecorder m_trace;
    CHandClock m_clock;
    CScript m_script;
    CFakeServiceManager m_manager{m_script};
    CFakePreparation m_preparation{m_script};
    CFakeDialogs m_dialogs{m_script};
    std::ostringstream m_errors;
    CThreadSet::Starter m_starter = StartThread;
    CServiceApp::CItems m_items;
};

TEST_F(ServiceAppTest, RunsItsRoutineUntilItIsToldToStop) {
    std::array<char, 16> thread{};
    const int exitCode = Execute([&](CRoutineApp& app) {
        ::pthread_getname_np(::pthread_self(), thread.data(), thread.size());
        EXPECT_TRUE(app.IsRunning());
        EXPECT_EQ(app.Wait(std::chrono::milliseconds(0)), 0U);
        EXPECT_FALSE(app.StopEvent()->Test());
        // The second one has nothing left to do.
        EXPECT_EQ(m_manager.Control(1), 0U);
        EXPECT_EQ(m_manager.Control(5), 0U);
        EXPECT_TRUE(app.StopEvent()->Test());
        return CStatus();
    });
    EXPECT_EQ(exitCode, 0);
    EXPECT_STREQ(thread.data(), "MainThread");
    EXPECT_THAT(m_trace.Ids(), ElementsAre(trace::kServiceStart, trace::kRunRoutine, trace::kServiceStop));
    EXPECT_THAT(EventIds(), ElementsAre(message::kServiceStarted, message::kServiceStopping));
    EXPECT_EQ(m_errors.str(), "");
}

TEST_F(ServiceAppTest, EndsWithTheErrorOfItsRoutine) {
    EXPECT_EQ(Execute([](CRoutineApp&) { return SystemError(ErrorCode::DiskFull); }), 1);
    EXPECT_EQ(ExitCode(), ToNumber(ErrorCode::DiskFull));
    EXPECT_THAT(EventIds(),
                ElementsAre(message::kServiceStarted, message::kSystemError, message::kServiceStopping));
    EXPECT_EQ(m_errors.str(), "Served: There is not enough space on the disk\n");
}

TEST_F(ServiceAppTest, EndsWithFailureThoughTheErrorHasNoNumber) {
    EXPECT_EQ(Execute([](CRoutineApp&) { return MessageError(message::kConfigurationMissing); }), 1);
    EXPECT_EQ(ExitCode(), 0U);
}

TEST_F(ServiceAppTest, TakesAnExceptionOfItsRoutineForAnError) {
    EXPECT_EQ(Execute([](CRoutineApp&) -> CStatus { throw std::runtime_error("thrown"); }), 1);
    EXPECT_THAT(EventIds(),
                ElementsAre(message::kServiceStarted, message::kCaughtException, message::kServiceStopping));
    EXPECT_THAT(m_errors.str(), ::testing::HasSubstr("thrown"));
}

TEST_F(ServiceAppTest, StopsAndSaysWhyWhenNoThreadCanBeStarted) {
    m_starter = [](const char*, const std::function<void()>&) -> CResult<std::thread> {
        return ErrorCode::NoSystemResources;
    };
    EXPECT_EQ(Execute([](CRoutineApp&) -> CStatus {
                  ADD_FAILURE() << "ran";
                  return {};
              }),
              1);
    EXPECT_EQ(ExitCode(), ToNumber(ErrorCode::NoSystemResources));
    EXPECT_THAT(m_trace.Ids(),
                ElementsAre(trace::kServiceStart, trace::kMainThreadFailed, trace::kServiceStop));
    EXPECT_THAT(EventIds(),
                ElementsAre(message::kServiceStarted, message::kServiceStopping, message::kSystemError));
}

TEST_F(ServiceAppTest, WaitsForEveryItemThatRunsBesideTheRoutine) {
    std::atomic<int> ended = 0;
    const CWorkItems::Work item = [&ended](CEvent& stop) {
        Ignore(WaitForAny({&stop}));
        ++ended;
        return CStatus();
    };
    m_items.apiServer = [&item](CServiceApp&, CEvent& stop) { return item(stop); };
    EXPECT_EQ(Execute([&](CRoutineApp& app) {
                  EXPECT_TRUE(app.StartApiConnection(item).IsOk());
                  app.Stop();
                  return CStatus();
              }),
              0);
    EXPECT_EQ(ended, 2);
}

TEST_F(ServiceAppTest, GoesOnWithoutAnItemThatFails) {
    m_items.apiServer = [](CServiceApp&, CEvent&) { return SystemError(ErrorCode::AccessDenied); };
    EXPECT_EQ(Execute([](CRoutineApp& app) {
                  app.Stop();
                  return CStatus();
              }),
              0);
}

}  // namespace
}  // namespace quorbel
