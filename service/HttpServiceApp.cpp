#include "service/HttpServiceApp.h"

#include "LibService/LibServiceAPI.h"
#include "platform/Root.h"

namespace quorbel {

namespace {

CStatus ServeAPI(const CServiceEnvironment& environment, CServiceApp& service, CEvent& stop) {
    const auto pipes = OpenPipesFolder();
    if (!pipes.IsOk()) return SystemError(pipes.Error(), L"pipe folder");
    const auto start = [&service](std::unique_ptr<CServiceAPIConnection> connection) {
        const std::shared_ptr<CServiceAPIConnection> shared = std::move(connection);
        return service.StartApiConnection([shared](CEvent& ended) { return shared->Serve(ended); });
    };
    return CServiceAPIListener(pipes.Value(), service.ServiceName(),
                               environment.TraceSettings().administrators, environment.Trace(), SystemClock(),
                               start)
        .Run(stop);
}

}  // namespace

CHttpServiceApp::CHttpServiceApp(std::vector<std::wstring> parameters, CHost host,
                                 CServiceEnvironment& environment)
    : CServiceApp(
          CQuorbelHTTPService::kServiceName, CQuorbelHTTPService::kDisplayName, std::move(parameters),
          std::move(host), environment.Trace(),
          {.apiServer = [&environment](CServiceApp& service,
                                       CEvent& stop) { return ServeAPI(environment, service, stop); }}),
      m_environment(environment) {}

CStatus CHttpServiceApp::Run() {
    RETURN_IF_FAILED(CServiceComponents::Create(m_environment, Work(), StopEvent(), m_components));
    return m_components->Service().Run();
}

int CHttpServiceApp::ExitInstance() {
    m_components.reset();
    return CServiceApp::ExitInstance();
}

}  // namespace quorbel
