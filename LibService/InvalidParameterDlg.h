#pragma once

#include <string>

#include "platform/framework/Dialog.h"

namespace quorbel {

/// "Invalid Parameter": which parameters there are.
class CInvalidParameterDlg : public CDialog {
 public:
    /// `parameter` is the one that is not, without its "-" or "/".
    CInvalidParameterDlg(IDialogDisplay* display, std::wstring parameter);

 protected:
    void OnInitDialog() override;

 private:
    const std::wstring m_parameter;
};

}  // namespace quorbel
