#include "LibService/DialogResources.h"
#include "LibService/DisplayDialogs.h"
#include "LibService/InvalidParameterDlg.h"
#include "LibService/ServiceDlg.h"
#include "platform/Text.h"
#include "platform/com/ClassRegistry.h"
#include "platform/com/Dispatch.h"

namespace quorbel {
namespace {

/// A window that only keeps what was done to it; a dialog unit is three pixels wide and two high.
class CFakeWindow final : public IDialogWindow {
 public:
    explicit CFakeWindow(const CDialogTemplate& layout)
        : client{layout.size.width * 3, layout.size.height * 2} {
        for (const CDialogItem& item : layout.items) {
            const CRectangle& units = item.rectangle;
            rectangles[item.id] = {units.left * 3, units.top * 2, units.width * 3, units.height * 2};
            texts[item.id] = item.text;
        }
    }
    CSize ClientSize() const override { return client; }
    CRectangle ItemRectangle(int id) const override { return rectangles.at(id); }
    void MoveItem(int id, const CRectangle& rectangle) override { rectangles.at(id) = rectangle; }
    std::wstring ItemText(int id) const override { return texts.at(id); }
    void SetItemText(int id, const std::wstring& text) override { texts.at(id) = text; }
    void SetIcons(const CIcon& big, const CIcon& small) override { icons = {big.size, small.size}; }
    bool IsMinimised() const override { return isMinimised; }
    void DrawIcon(const CIcon& icon, int left, int top) override {
        drawnIcons.push_back({left, top, icon.size, icon.size});
    }
    void Close(int result) override { closedWith = result; }

    CSize client;
    std::map<int, CRectangle> rectangles;
    std::map<int, std::wstring> texts;
    std::pair<int, int> icons;
    bool isMinimised = false;
    std::vector<CRectangle> drawnIcons;
    std::optional<int> closedWith;
};

/// A display on which `user` plays the user, while the window is open.
class CFakeDisplay final : public IDialogDisplay {
 public:
    using User = std::function<void(CFakeWindow&, IDialogEvents&)>;
    explicit CFakeDisplay(User played) : user(std::move(played)) {}

    std::optional<int> Run(const CDialogTemplate& layout, const CHostedControls& controls,
                           IDialogEvents& events, CEvent*) override {
        CFakeWindow window(layout);
        caption = layout.caption;
        hosted = controls.size();
        events.OnResized(window.client);  // as a toolkit may do before all is in place
        events.OnOpened(window);
        user(window, events);
        return window.closedWith.value_or(kDialogCancelled);
    }

    const User user;
    std::wstring caption;
    std::size_t hosted = 0;
};

/// An activity-display control that notes how it is called.
class CFakeControl final : public CComObject<CWithoutDispatch<IDispatch>> {
 public:
    explicit CFakeControl(std::vector<std::wstring>& calls, std::wstring failing)
        : m_calls(calls), m_failing(std::move(failing)) {}
    HRESULT GetIDsOfNames(const GUID&, const wchar_t* const* names, std::uint32_t count, std::uint32_t,
                          DISPID* ids) override {
        EXPECT_EQ(count, 1U);
        m_names.emplace_back(names[0]);
        ids[0] = static_cast<DISPID>(m_names.size() - 1);
        return names[0] == m_failing ? DISP_E_UNKNOWNNAME : S_OK;
    }
    HRESULT Invoke(DISPID id, const GUID&, std::uint32_t, std::uint16_t flags, DISPPARAMS* parameters,
                   VARIANT* result, EXCEPINFO*, std::uint32_t*) override {
        EXPECT_EQ(flags, DISPATCH_METHOD);
        EXPECT_EQ(parameters->cArgs, 1U);
        EXPECT_EQ(parameters->rgvarg[0].vt, VT_BSTR);
        EXPECT_EQ(result, nullptr);
        m_calls.push_back(m_names.at(static_cast<std::size_t>(id)) + L"(" +
                          std::wstring(ToView(parameters->rgvarg[0].bstrVal)) + L")");
        return E_FAIL;  // of no consequence
    }

 private:
    std::vector<std::wstring>& m_calls;
    const std::wstring m_failing;
    std::vector<std::wstring> m_names;
};

/// The calls that the dialog makes of a control to which the method `failing` is unknown.
std::vector<std::wstring> CallsToControl(const std::wstring& failing) {
    std::vector<std::wstring> calls;
    const CComRegistration control(kActivityDisplayClass, [&](const GUID& id, void** object) {
        return CComPtr<CFakeControl>(new CFakeControl(calls, failing))->QueryInterface(id, object);
    });
    CFakeDisplay display([](auto&, auto&) {});
    EXPECT_TRUE(CServiceDlg(&display, L"Some Service").DoModal().has_value());
    EXPECT_EQ(display.hosted, 1U);
    return calls;
}

TEST(ServiceDlg, TellsTheControlTheMessageModuleAndThenTheService) {
    const std::vector<std::wstring> both{L"MessageLib(TrcSome Service)", L"Connect(:Some Service)"};
    EXPECT_EQ(CallsToControl(L""), both);
    EXPECT_EQ(CallsToControl(L"MessageLib"), std::vector{both[1]});
    EXPECT_EQ(CallsToControl(L"Connect"), std::vector{both[0]});
}

/// A control that nobody can call.
class CMuteControl final : public CComObject<IUnknown> {};

TEST(ServiceDlg, GoesOnWithoutAControlThatCanBeCalled) {
    CFakeDisplay display([](CFakeWindow&, IDialogEvents& events) { events.OnPressed(kDialogOk); });
    EXPECT_EQ(CServiceDlg(&display, L"Service").DoModal(), kDialogOk);
    EXPECT_EQ(display.hosted, 0U);
    const CComRegistration control(kActivityDisplayClass, [](const GUID& id, void** object) {
        return CComPtr<CMuteControl>(new CMuteControl)->QueryInterface(id, object);
    });
    EXPECT_EQ(CServiceDlg(&display, L"Service").DoModal(), kDialogOk);
    EXPECT_EQ(display.hosted, 1U);
}

TEST(ServiceDlg, KeepsTheButtonInItsCornerAndLetsTheControlFillTheRest) {
    struct CCase {
        CSize client;
        CRectangle button;
        CRectangle control;
    };
    const CCase cases[] = {
        {{1800, 740}, {1632, 700, 150, 28}, {0, 0, 1800, 688}},  // as it begins
        {{2000, 1000}, {1832, 960, 150, 28}, {0, 0, 2000, 948}},
        {{600, 300}, {432, 260, 150, 28}, {0, 0, 600, 248}},
        {{100, 30}, {-68, -10, 150, 28}, {0, 0, 100, 0}},  // smaller than what is in it
        {{1800, 740}, {1632, 700, 150, 28}, {0, 0, 1800, 688}},
    };
    CFakeDisplay display([&](CFakeWindow& window, IDialogEvents& events) {
        for (const CCase& each : cases) {
            window.client = each.client;
            events.OnResized(each.client);
            EXPECT_EQ(window.rectangles.at(kDialogOk), each.button) << each.client.width;
            EXPECT_EQ(window.rectangles.at(kActivityControl), each.control) << each.client.width;
        }
    });
    EXPECT_EQ(CServiceDlg(&display, L"Service").DoModal(), kDialogCancelled);
    EXPECT_EQ(display.caption, L"Activity Display");
}

TEST(ServiceDlg, PaintsItsIconInTheMiddleWhileMinimised) {
    CFakeDisplay display([](CFakeWindow& window, IDialogEvents& events) {
        EXPECT_EQ(window.icons, std::pair(48, 16));
        EXPECT_FALSE(events.OnPainting());
        EXPECT_TRUE(window.drawnIcons.empty());
        window.isMinimised = true;
        window.client = {101, 60};
        EXPECT_TRUE(events.OnPainting());
        EXPECT_EQ(window.drawnIcons, (std::vector{CRectangle{27, 6, 48, 48}}));
    });
    EXPECT_TRUE(CServiceDlg(&display, L"Service").DoModal().has_value());
}

TEST(InvalidParameterDlg, NamesTheParameterAsItIs) {
    for (const std::wstring parameter : {L"x", L"", L"%s", L"a 'b' %d\n"}) {
        std::wstring text;
        CFakeDisplay display([&](CFakeWindow& window, IDialogEvents& events) {
            text = window.texts.at(kInvalidParameterText);
            events.OnPressed(kDialogOk);
        });
        EXPECT_EQ(CInvalidParameterDlg(&display, parameter).DoModal(), kDialogOk);
        EXPECT_EQ(display.caption, L"Invalid Parameter");
        EXPECT_EQ(text, L"You have supplied an invalid command line parameter '" + parameter +
                            L"'.\n\nAllowed parameters are:\n"
                            L"  -install (to install the service)\n"
                            L"  -remove (to remove the service)\n"
                            L"  -debug (to run in debugging mode)");
    }
}

TEST(Dialogs, SayThatThereIsNoDisplayWhenTheLibraryIsMissingOrNone) {
    const auto close = CEvent::Create(EventReset::Manual).Value();
    for (const std::wstring& library :
         {std::wstring(L"NoSuchDisplay.so"), std::wstring(L"TrcQBHTTPService.dll"),
          FromUtf8(QUORBEL_PROGRAMS) + L"/QbLua.so"}) {
        CDisplayDialogs dialogs(library, {});
        EXPECT_EQ(dialogs.ShowActivity(L"Service", *close), DialogOutcome::NoDisplay);
        EXPECT_EQ(dialogs.ShowInvalidParameter(L"x"), DialogOutcome::NoDisplay);
    }
}

TEST(ServiceIcon, IsARoundedSquareOfAnySize) {
    for (int size : {1, 16, 48}) EXPECT_EQ(DrawServiceIcon(size).pixels.size(), std::size_t(size) * size);
    const CIcon icon = DrawServiceIcon(48);
    EXPECT_EQ(icon.pixels.front() >> 24, 0U);           // a corner is transparent
    EXPECT_EQ(icon.pixels[48 * 24 + 24] >> 24, 0xFFU);  // the middle is not
}

}  // namespace
}  // namespace quorbel
