#include "LibService/DisplayDialogs.h"

#include "LibService/InvalidParameterDlg.h"
#include "LibService/ServiceDlg.h"

namespace quorbel {

namespace {

DialogOutcome Outcome(std::optional<int> result) {
    return result ? DialogOutcome::Closed : DialogOutcome::NoDisplay;
}

}  // namespace

CDisplayDialogs::CDisplayDialogs(std::wstring library, CDisplayServices services)
    : m_display(std::move(library), std::move(services)) {}

DialogOutcome CDisplayDialogs::ShowActivity(const std::wstring& serviceName, CEvent& close) {
    return Outcome(CServiceDlg(m_display.Open(), serviceName).DoModal(&close));
}

DialogOutcome CDisplayDialogs::ShowInvalidParameter(const std::wstring& parameter) {
    return Outcome(CInvalidParameterDlg(m_display.Open(), parameter).DoModal());
}

}  // namespace quorbel
