#include "service/HttpServiceApp.h"

namespace quorbel {

CHttpServiceApp::CHttpServiceApp(std::vector<std::wstring> parameters, CHost host,
                                 CServiceEnvironment& environment, CItems items)
    : CServiceApp(CQuorbelHTTPService::kServiceName, CQuorbelHTTPService::kDisplayName, std::move(parameters),
                  std::move(host), environment.Trace(), std::move(items)),
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
