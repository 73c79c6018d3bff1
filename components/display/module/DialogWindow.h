#pragma once

#include <map>
#include <memory>

#include "components/display/module/FltkControl.h"
#include "components/display/module/Toolkit.h"
#include "platform/framework/DialogDisplay.h"

namespace quorbel {

/// A dialog's window, made from its template.
class CDialogWindow final : public Fl_Double_Window, public IDialogWindow {
 public:
    CDialogWindow(const CDialogTemplate& layout, const CHostedControls& controls, IDialogEvents& events);
    ~CDialogWindow() override;

    /// Tells the dialog, and shows the window in the middle of the screen, no larger than that.
    void Open();
    /// Presses the default button; false when there is none.
    bool PressDefault();
    /// None while the window is open.
    std::optional<int> Result() const noexcept { return m_result; }

    CSize ClientSize() const override { return {w(), h()}; }
    CRectangle ItemRectangle(int id) const override;
    void MoveItem(int id, const CRectangle& rectangle) override;
    std::wstring ItemText(int id) const override;
    void SetItemText(int id, const std::wstring& text) override;
    void SetIcons(const CIcon& big, const CIcon& small) override;
    bool IsMinimised() const override;
    void DrawIcon(const CIcon& icon, int left, int top) override;
    void Close(int result) override { m_result = result; }

    void resize(int left, int top, int width, int height) override;

 protected:
    void draw() override;

 private:
    struct CItem {
        std::unique_ptr<Fl_Widget> widget;  // null for a control's
        CComPtr<IFltkControl> control;
        Fl_Widget* shown = nullptr;
        std::wstring text;
    };

    void Add(const CDialogItem& item, const CHostedControls& controls);
    CRectangle Pixels(const CRectangle& units) const;
    const CItem* Find(int id) const;

    IDialogEvents& m_events;
    std::map<int, CItem> m_items;
    std::map<const Fl_Widget*, int> m_buttons;
    double m_unitWidth = 1;
    double m_unitHeight = 1;
    std::optional<int> m_result;
};

}  // namespace quorbel
