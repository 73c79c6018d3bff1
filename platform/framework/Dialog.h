#pragma once

#include "platform/framework/DialogDisplay.h"

namespace quorbel {

/// The base of modal dialogs. For one thread.
class CDialog : private IDialogEvents {
 public:
    /// `display` must outlive the dialog; null when there is none.
    CDialog(IDialogDisplay* display, CDialogTemplate layout);
    virtual ~CDialog() = default;
    CDialog(const CDialog&) = delete;
    CDialog& operator=(const CDialog&) = delete;

    /// Shows the dialog until it is closed, by itself or because `close` is set, and says with what result
    /// (kDialogCancelled unless a button gave it one). None when no display shows it.
    std::optional<int> DoModal(CEvent* close = nullptr);

 protected:
    /// Called once before the window is shown; from here on there is a Window.
    virtual void OnInitDialog() {}
    virtual void OnSize(CSize client) { Ignore(client); }
    /// Whether the window was painted; otherwise its items are.
    virtual bool OnPaint() { return false; }
    /// A button closes the dialog with its id unless this is overridden.
    virtual void OnButton(int id) { EndDialog(id); }

    IDialogWindow& Window() const noexcept { return *m_window; }
    void EndDialog(int result) { m_window->Close(result); }
    const CDialogTemplate& Template() const noexcept { return m_template; }
    const CHostedControls& Controls() const noexcept { return m_controls; }

 private:
    void OnOpened(IDialogWindow& window) override;
    void OnResized(CSize client) override;
    bool OnPainting() override { return OnPaint(); }
    void OnPressed(int button) override { OnButton(button); }
    /// The components that the window is to host.
    virtual CHostedControls CreateControls() const { return {}; }

    IDialogDisplay* const m_display;
    const CDialogTemplate m_template;
    CHostedControls m_controls;  // while the dialog is shown
    IDialogWindow* m_window = nullptr;
};

/// A dialog that hosts the windows of other components and can be resized.
class CDialogEx : public CDialog {
 public:
    CDialogEx(IDialogDisplay* display, CDialogTemplate layout);

 protected:
    /// Calls a method that has one text for its argument. E_NOINTERFACE when the control is missing or has no
    /// automation interface, DISP_E_UNKNOWNNAME when it has no such method.
    HRESULT CallControl(int id, const wchar_t* method, const std::wstring& argument) const;

 private:
    CHostedControls CreateControls() const final;
};

}  // namespace quorbel
