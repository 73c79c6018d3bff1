#pragma once

#include <map>
#include <optional>

#include "platform/Event.h"
#include "platform/framework/DialogTemplate.h"

namespace quorbel {

/// A dialog's open window. Pixels, from the upper left corner of the client area. Items that are unknown have
/// an empty rectangle and text, and cannot be changed. For the thread that runs the dialog.
class IDialogWindow {
 public:
    virtual CSize ClientSize() const = 0;
    virtual CRectangle ItemRectangle(int id) const = 0;
    virtual void MoveItem(int id, const CRectangle& rectangle) = 0;
    virtual std::wstring ItemText(int id) const = 0;
    virtual void SetItemText(int id, const std::wstring& text) = 0;
    virtual void SetIcons(const CIcon& big, const CIcon& small) = 0;
    virtual bool IsMinimised() const = 0;
    /// While the window is painted only.
    virtual void DrawIcon(const CIcon& icon, int left, int top) = 0;
    /// Ends the dialog with that result.
    virtual void Close(int result) = 0;

 protected:
    ~IDialogWindow() = default;
};

/// What happens to a dialog's window, told to the dialog. The window lives from the first call to the last.
class IDialogEvents {
 public:
    /// The window is made and about to be shown.
    virtual void OnOpened(IDialogWindow& window) = 0;
    virtual void OnResized(CSize client) = 0;
    /// Whether the window was painted here; otherwise its items are.
    virtual bool OnPainting() = 0;
    virtual void OnPressed(int button) = 0;

 protected:
    ~IDialogEvents() = default;
};

/// The components' objects that a dialog hosts, by their items' ids.
using CHostedControls = std::map<int, CComPtr<IUnknown>>;

/// What shows dialogs.
class IDialogDisplay {
 public:
    virtual ~IDialogDisplay() = default;
    /// Shows a window and returns when it was closed: with the result that closed it, kDialogCancelled when
    /// it was closed otherwise or `close` (may be null) was set. An item whose control is missing, or does
    /// not know this display, is left empty. None when there is no display or it fails; never throws what it
    /// raised itself.
    virtual std::optional<int> Run(const CDialogTemplate& layout, const CHostedControls& controls,
                                   IDialogEvents& events, CEvent* close) = 0;
};

}  // namespace quorbel
