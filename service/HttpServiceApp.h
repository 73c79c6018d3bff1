#pragma once

#include <memory>
#include <string>
#include <vector>

#include "LibService/ServiceApp.h"
#include "service/ServiceComponents.h"
#include "service/ServiceEnvironment.h"

namespace quorbel {

/// The application that runs the HTTP service.
class CHttpServiceApp final : public CServiceApp {
 public:
    /// `environment` outlives the object, and is what `host` is prepared by.
    CHttpServiceApp(std::vector<std::wstring> parameters, CHost host, CServiceEnvironment& environment,
                    CItems items);

    CStatus Run() override;
    int ExitInstance() override;

 private:
    CServiceEnvironment& m_environment;
    std::unique_ptr<CServiceComponents>
        m_components;  // other work items may use them until all work has ended
};

}  // namespace quorbel
