#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "LibService/ServiceDialogs.h"
#include "LibService/ServicePreparation.h"
#include "platform/Text.h"
#include "platform/service_manager/ServiceManager.h"

namespace quorbel {

/// What happened, in its order, and what is to fail.
struct CScript {
    std::vector<std::string> calls;
    std::string failing;  ///< the call that fails

    ErrorCode Call(const std::string& call) {
        calls.push_back(call);
        return call == failing ? ErrorCode::AccessDenied : ErrorCode::Success;
    }
    CStatus StatusOf(const std::string& call) {
        const ErrorCode error = Call(call);
        return error == ErrorCode::Success ? CStatus() : SystemError(error);
    }
};

class CFakeKnownService final : public IKnownService {
 public:
    CFakeKnownService(CScript& script, std::vector<ServiceState>& states)
        : m_script(script), m_states(states) {}
    ErrorCode Stop() override { return m_script.Call("stop"); }
    CResult<ServiceState> QueryState() override {
        if (const ErrorCode error = m_script.Call("query"); error != ErrorCode::Success) return error;
        const ServiceState state = m_states.front();
        m_states.erase(m_states.begin());
        return state;
    }
    ErrorCode Delete() override { return m_script.Call("delete"); }

 private:
    CScript& m_script;
    std::vector<ServiceState>& m_states;
};

/// A service manager that starts the service at once and answers as told.
class CFakeServiceManager final : public IServiceManager {
 public:
    explicit CFakeServiceManager(CScript& script) : m_script(script) {}

    std::vector<ServiceState> states;      ///< that the installed service goes through
    std::vector<CServiceStatus> reported;  ///< what it was told

    class CDatabase final : public IServiceDatabase {
     public:
        explicit CDatabase(CFakeServiceManager& manager) : m_manager(manager) {}
        ErrorCode Create(const CServiceDescription& description) override {
            return m_manager.m_script.Call("create " + ToUtf8(description.name) + ", " +
                                           ToUtf8(description.displayName) + ", " +
                                           description.program.filename().string());
        }
        CResult<std::unique_ptr<IKnownService>> Open(const std::wstring& name) override {
            const ErrorCode error = m_manager.m_script.Call("open " + ToUtf8(name));
            if (error != ErrorCode::Success) return error;
            return std::unique_ptr<IKnownService>(
                std::make_unique<CFakeKnownService>(m_manager.m_script, m_manager.states));
        }

     private:
        CFakeServiceManager& m_manager;
    };

    CResult<std::unique_ptr<IServiceDatabase>> OpenDatabase() override {
        if (const ErrorCode error = m_script.Call("manager"); error != ErrorCode::Success) return error;
        return std::unique_ptr<IServiceDatabase>(std::make_unique<CDatabase>(*this));
    }
    ErrorCode RunDispatcher(const TableEntry* table) override {
        const ErrorCode error = m_script.Call("dispatch " + ToUtf8(table[0].name));
        EXPECT_EQ(table[1].name, nullptr);
        if (error == ErrorCode::Success) table[0].main();
        return error;
    }
    ErrorCode RegisterHandler(const wchar_t* name, Handler handler) override {
        m_handler = handler;
        return m_script.Call("handler " + ToUtf8(name));
    }
    ErrorCode SetStatus(const CServiceStatus& status) override {
        reported.push_back(status);
        return ErrorCode::BrokenPipe;  // a manager that does not listen changes nothing
    }
    std::uint32_t Control(std::uint32_t control) const { return m_handler(control, 0, nullptr); }

 private:
    CScript& m_script;
    Handler m_handler = nullptr;
};

class CFakePreparation final : public IServicePreparation {
 public:
    explicit CFakePreparation(CScript& script) : m_script(script) {}
    CStatus OpenEventLog(EventDisplay display) override {
        return m_script.StatusOf(display == EventDisplay::None ? "event log" : "event log on stderr");
    }
    CStatus RegisterEventSource() override { return m_script.StatusOf("event source"); }
    CStatus SetUpTracing() override { return m_script.StatusOf("tracing"); }

 private:
    CScript& m_script;
};

class CFakeDialogs final : public IServiceDialogs {
 public:
    explicit CFakeDialogs(CScript& script) : m_script(script) {}
    DialogOutcome outcome = DialogOutcome::Closed;
    DialogOutcome ShowActivity(const std::wstring& serviceName, CEvent& /*close*/) override {
        m_script.calls.push_back("activity of " + ToUtf8(serviceName));
        return outcome;
    }
    DialogOutcome ShowInvalidParameter(const std::wstring& parameter) override {
        m_script.calls.push_back("invalid " + ToUtf8(parameter));
        return outcome;
    }

 private:
    CScript& m_script;
};

}  // namespace quorbel
