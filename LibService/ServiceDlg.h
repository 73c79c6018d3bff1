#pragma once

#include <string>

#include "platform/framework/Dialog.h"

namespace quorbel {

/// "Activity Display": hosts the activity-display control, and tells it what to show.
class CServiceDlg : public CDialogEx {
 public:
    CServiceDlg(IDialogDisplay* display, std::wstring serviceName);

 protected:
    void OnInitDialog() override;
    void OnSize(CSize client) override;
    bool OnPaint() override;

 private:
    void RecordOffsets();

    const std::wstring m_serviceName;
    const CIcon m_icon;
    const CIcon m_smallIcon;

    // How far edges are from those of the client area. All of the button's count from the right and lower
    // ones: it keeps its size.
    int m_buttonLeft = 0;
    int m_buttonTop = 0;
    int m_buttonRight = 0;
    int m_buttonBottom = 0;
    int m_controlLeft = 0;  // from the left
    int m_controlTop = 0;   // from the top
    int m_controlRight = 0;
    int m_controlBottom = 0;
};

}  // namespace quorbel
