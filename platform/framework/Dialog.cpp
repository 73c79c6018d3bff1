#include "platform/framework/Dialog.h"

#include "platform/com/ClassRegistry.h"
#include "platform/com/Dispatch.h"

namespace quorbel {

CDialog::CDialog(IDialogDisplay* display, CDialogTemplate layout)
    : m_display(display), m_template(std::move(layout)) {}

std::optional<int> CDialog::DoModal(CEvent* close) {
    if (!m_display) return std::nullopt;
    m_controls = CreateControls();
    const auto result = m_display->Run(m_template, m_controls, *this, close);
    m_window = nullptr;
    m_controls.clear();
    return result;
}

void CDialog::OnOpened(IDialogWindow& window) {
    m_window = &window;
    OnInitDialog();
}

void CDialog::OnResized(CSize client) {
    // A window may be given its size before the dialog knows what to keep of it.
    if (m_window) OnSize(client);
}

namespace {

CDialogTemplate Resizable(CDialogTemplate layout) {
    layout.isResizable = true;
    return layout;
}

}  // namespace

CDialogEx::CDialogEx(IDialogDisplay* display, CDialogTemplate layout)
    : CDialog(display, Resizable(std::move(layout))) {}

CHostedControls CDialogEx::CreateControls() const {
    CHostedControls controls;
    for (const CDialogItem& item : Template().items) {
        if (item.kind != CDialogItem::Kind::Control) continue;
        CComPtr<IUnknown> control;
        if (Succeeded(CreateComInstance(item.control, control)) && control)
            controls.emplace(item.id, std::move(control));
    }
    return controls;
}

HRESULT CDialogEx::CallControl(int id, const wchar_t* method, const std::wstring& argument) const {
    const auto found = Controls().find(id);
    CComPtr<IDispatch> dispatch;
    if (found == Controls().end() || !Succeeded(found->second.QueryInterface(dispatch))) return E_NOINTERFACE;
    DISPID call = DISPID_UNKNOWN;
    const HRESULT named = dispatch->GetIDsOfNames(IID_NULL, &method, 1, 0, &call);
    if (!Succeeded(named)) return named;
    CVariant text{std::wstring_view(argument)};
    DISPPARAMS parameters{&text, nullptr, 1, 0};
    return dispatch->Invoke(call, IID_NULL, 0, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr);
}

}  // namespace quorbel
