#pragma once

#include "LibService/ServiceDialogs.h"
#include "components/display/Display.h"

namespace quorbel {

/// The service's windows on the display of a library.
class CDisplayDialogs final : public IServiceDialogs {
 public:
    CDisplayDialogs(std::wstring library, CDisplayServices services);
    DialogOutcome ShowActivity(const std::wstring& serviceName, CEvent& close) override;
    DialogOutcome ShowInvalidParameter(const std::wstring& parameter) override;

 private:
    CDisplay m_display;
};

}  // namespace quorbel
