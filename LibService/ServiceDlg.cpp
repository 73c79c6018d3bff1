#include "LibService/ServiceDlg.h"

#include "LibService/DialogResources.h"

namespace quorbel {

namespace {

constexpr int kBigIcon = 48;
constexpr int kSmallIcon = 16;

/// The rectangle between two corners, which does not turn inside out when its place is too small.
CRectangle Between(int left, int top, int right, int bottom) {
    return {left, top, std::max(right - left, 0), std::max(bottom - top, 0)};
}

}  // namespace

CServiceDlg::CServiceDlg(IDialogDisplay* display, std::wstring serviceName)
    : CDialogEx(display, ServiceDialogTemplate()),
      m_serviceName(std::move(serviceName)),
      m_icon(DrawServiceIcon(kBigIcon)),
      m_smallIcon(DrawServiceIcon(kSmallIcon)) {}

void CServiceDlg::OnInitDialog() {
    Window().SetIcons(m_icon, m_smallIcon);
    RecordOffsets();
    // Without them, or without the control, the window stays empty and goes on.
    Ignore(CallControl(kActivityControl, L"MessageLib", L"Trc" + m_serviceName));
    Ignore(CallControl(kActivityControl, L"Connect", L":" + m_serviceName));
}

void CServiceDlg::RecordOffsets() {
    const CSize client = Window().ClientSize();
    const CRectangle button = Window().ItemRectangle(kDialogOk);
    m_buttonLeft = client.width - button.left;
    m_buttonTop = client.height - button.top;
    m_buttonRight = client.width - button.Right();
    m_buttonBottom = client.height - button.Bottom();
    const CRectangle control = Window().ItemRectangle(kActivityControl);
    m_controlLeft = control.left;
    m_controlTop = control.top;
    m_controlRight = client.width - control.Right();
    m_controlBottom = client.height - control.Bottom();
}

void CServiceDlg::OnSize(CSize client) {
    Window().MoveItem(kDialogOk, Between(client.width - m_buttonLeft, client.height - m_buttonTop,
                                         client.width - m_buttonRight, client.height - m_buttonBottom));
    Window().MoveItem(kActivityControl, Between(m_controlLeft, m_controlTop, client.width - m_controlRight,
                                                client.height - m_controlBottom));
}

bool CServiceDlg::OnPaint() {
    if (!Window().IsMinimised()) return false;
    const CSize client = Window().ClientSize();
    Window().DrawIcon(m_icon, (client.width - m_icon.size + 1) / 2, (client.height - m_icon.size + 1) / 2);
    return true;
}

}  // namespace quorbel
