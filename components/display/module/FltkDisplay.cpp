#include "components/display/module/FltkDisplay.h"

#include <exception>

#include "components/display/module/ActivityControl.h"
#include "components/display/module/Appearance.h"
#include "components/display/module/DialogWindow.h"
#include "components/display/module/Toolkit.h"

namespace quorbel {

namespace {

/// Whether the connection to the display broke. There is no way back: the toolkit has one display for good.
bool isLost = false;

void NoteLoss(Display*, void*) {
    isLost = true;
}

/// Connects without the toolkit's own way, which ends the process when there is no display, and lets it live
/// when the display goes away or refuses something.
bool Connect() {
    Display* const display = XOpenDisplay(nullptr);
    if (!display) return false;
    if (!CanWatch(ConnectionNumber(display))) {
        XCloseDisplay(display);
        return false;
    }
    XSetIOErrorHandler([](Display*) { return 0; });
    XSetIOErrorExitHandler(display, NoteLoss, nullptr);
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    fl_open_display(display);
    return true;
}

/// Enter that no field wants presses the default button, wherever focus and mouse are: the toolkit's groups
/// would take it for the way to their next field.
int Dispatch(int event, Fl_Window* window) {
    auto* const dialog = dynamic_cast<CDialogWindow*>(window);
    if (event == FL_SHORTCUT && IsEnterPressed() && dialog && dialog->PressDefault()) return 1;
    return Fl::handle_(event, window);
}

/// Closes a window when an event is set, for as long as it lives.
class CCloseWatch {
 public:
    CCloseWatch(CEvent* close, CDialogWindow& window) : m_close(close), m_window(window) {
        if (!m_close) return;
        Fl::add_fd(
            m_close->Descriptor(), FL_READ,
            [](int, void* self) { static_cast<CCloseWatch*>(self)->m_window.Close(kDialogCancelled); }, this);
    }
    ~CCloseWatch() {
        if (m_close) Fl::remove_fd(m_close->Descriptor());
    }
    CCloseWatch(const CCloseWatch&) = delete;
    CCloseWatch& operator=(const CCloseWatch&) = delete;

 private:
    CEvent* const m_close;
    CDialogWindow& m_window;
};

}  // namespace

CFltkDisplay* CFltkDisplay::Open(const CDisplayServices& services) {
    static CFltkDisplay display;
    if (!fl_display) {
        if (!Connect()) return nullptr;
        SetAppearance();
        Fl::event_dispatch(Dispatch);
    }
    display.m_services = services;
    return isLost ? nullptr : &display;
}

std::optional<int> CFltkDisplay::Run(const CDialogTemplate& layout, const CHostedControls& controls,
                                     IDialogEvents& events, CEvent* close) try {
    if (close && !CanWatch(close->Descriptor())) return std::nullopt;
    CDialogWindow window(layout, controls, events);
    const CCloseWatch watch(close, window);
    window.Open();
    while (!window.Result() && !isLost) Fl::wait();
    if (isLost) return std::nullopt;
    window.hide();
    XSync(fl_display, False);  // so that the window goes now, whatever this thread does next
    return window.Result();
} catch (const std::exception&) {
    return std::nullopt;
}

HRESULT CFltkDisplay::Create(const GUID& classId, const GUID& interfaceId, void** object) try {
    if (classId != kActivityDisplayClass) return REGDB_E_CLASSNOTREG;
    return CComPtr<CActivityControl>(new CActivityControl(m_services))->QueryInterface(interfaceId, object);
} catch (const std::exception&) {
    return E_OUTOFMEMORY;
}

}  // namespace quorbel
