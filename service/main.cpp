#include <iostream>

#include "LibService/ActivityText.h"
#include "LibService/FaultResponse.h"
#include "LibService/ServiceDialogs.h"
#include "platform/Program.h"
#include "platform/Root.h"
#include "platform/StopSignals.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/eventlog/EventSink.h"
#include "platform/service_manager/SystemdManager.h"
#include "service/HttpServiceApp.h"

namespace quorbel {

namespace {

std::vector<std::wstring> Parameters(int count, char** arguments) {
    std::vector<std::wstring> parameters;
    for (int i = 1; i < count; ++i) parameters.push_back(FromUtf8(arguments[i]));
    return parameters;
}

CStatus ShowActivity(const std::wstring& serviceName, CEvent& close) {
    const auto root = OpenRootFolder();
    if (!root.IsOk()) return SystemError(root.Error(), L"root folder");
    const auto program = ProgramPath();
    if (!program.IsOk()) return SystemError(program.Error());
    const auto module = program.Value().parent_path() / ("Trc" + ToUtf8(serviceName) + ".dll");
    return ShowActivityAsText(root.Value(), module, serviceName, close);
}

/// Chooses what the application stands on, and runs it.
int RunApplication(std::vector<std::wstring> parameters) {
    if (const CStatus status = CFaultResponse::Instance().SetUp(); !status.IsOk()) {
        std::cerr << ToUtf8(status.Text()) << "\n";
        return 1;
    }
    const auto manager = CreateSystemdManager();
    if (!manager.IsOk()) {
        std::cerr << ToUtf8(SystemError(manager.Error()).Text()) << "\n";
        return 1;
    }
    const auto dialogs = CreateServiceDialogs();
    CServiceEnvironment environment;
    CHttpServiceApp application(std::move(parameters),
                                {.manager = *manager.Value(),
                                 .dialogs = *dialogs,
                                 .preparation = environment,
                                 .clock = SystemClock(),
                                 .output = std::cout,
                                 .errors = std::cerr,
                                 .isStartedByManager = StartedByServiceManager(),
                                 .setOnStopSignals = SetOnStopSignals,
                                 .startThread = StartThread,
                                 .showActivityAsText = ShowActivity},
                                environment);
    return application.Execute();
}

}  // namespace

}  // namespace quorbel

int main(int count, char** arguments) {
    return quorbel::RunApplication(quorbel::Parameters(count, arguments));
}
