#include "LibService/InvalidParameterDlg.h"

#include "LibService/DialogResources.h"

namespace quorbel {

CInvalidParameterDlg::CInvalidParameterDlg(IDialogDisplay* display, std::wstring parameter)
    : CDialog(display, InvalidParameterTemplate()), m_parameter(std::move(parameter)) {}

void CInvalidParameterDlg::OnInitDialog() {
    constexpr std::wstring_view kInsert = L"%s";
    std::wstring text = Window().ItemText(kInvalidParameterText);
    const std::size_t insert = text.find(kInsert);
    if (insert != text.npos) text.replace(insert, kInsert.size(), m_parameter);
    Window().SetItemText(kInvalidParameterText, text);
}

}  // namespace quorbel
