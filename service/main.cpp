#include <iostream>

#include "LibService/NoServiceDialogs.h"
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

/// Chooses what the application stands on, and runs it.
int RunApplication(std::vector<std::wstring> parameters) {
    const auto manager = CreateSystemdManager();
    if (!manager.IsOk()) {
        std::cerr << ToUtf8(SystemError(manager.Error()).Text()) << "\n";
        return 1;
    }
    CNoServiceDialogs dialogs;
    CServiceEnvironment environment;
    CHttpServiceApp application(std::move(parameters),
                                {.manager = *manager.Value(),
                                 .dialogs = dialogs,
                                 .preparation = environment,
                                 .clock = SystemClock(),
                                 .output = std::cout,
                                 .errors = std::cerr,
                                 .isStartedByManager = StartedByServiceManager(),
                                 .setOnStopSignals = SetOnStopSignals,
                                 .startThread = StartThread},
                                environment, {.apiServer = {}});
    return application.Execute();
}

}  // namespace

}  // namespace quorbel

int main(int count, char** arguments) {
    return quorbel::RunApplication(quorbel::Parameters(count, arguments));
}
