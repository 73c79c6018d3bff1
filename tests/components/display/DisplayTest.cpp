#include <cstdlib>

#include "LibService/DialogResources.h"
#include "LibService/DisplayDialogs.h"
#include "LibService/ServiceDlg.h"
#include "platform/Thread.h"
#include "platform/com/Dispatch.h"
#include "tests/components/display/VirtualScreen.h"

namespace quorbel {
namespace {

constexpr const wchar_t* kLibrary = L"QbDisplay.so";
constexpr const char* kActivityTitle = "Activity Display";
constexpr std::uint32_t kErrorColour = 0xC93028;
constexpr std::uint32_t kConnectedColour = 0x3C9A5F;
constexpr std::uint32_t kWaitingColour = 0xD58A00;
constexpr std::uint32_t kPausedColour = 0x2F75C0;

/// The screen of this process: a toolkit that opened a display keeps it.
CVirtualScreen& Screen() {
    static const std::unique_ptr<CVirtualScreen> screen = [] {
        auto started = CVirtualScreen::Start();
        if (started) ::setenv("DISPLAY", started->Name().c_str(), 1);
        return started;
    }();
    return *screen;
}

/// A service with one record, an error.
class COneRecord final : public CServiceApiClient {
 public:
    CResult<CServiceRecords> ReadRecords(std::uint64_t first, std::chrono::milliseconds,
                                         CEvent& stop) override {
        if (first == 0) return CServiceRecords{{{0, 133'000'000'000'000'000, 0xC0010001, 1, {}}}, 1};
        Ignore(WaitForAny({&stop}));
        return ErrorCode::Cancelled;
    }
    CResult<std::string> ObjectName(std::uint64_t, CEvent&) override { return std::string("Object"); }
};

CDisplayServices ServicesOfOneRecord() {
    return {StartThread, [](const std::wstring& name) -> CResult<std::unique_ptr<CServiceApiClient>> {
                if (name != L"QBHTTPService") return ErrorCode::FileNotFound;
                return std::unique_ptr<CServiceApiClient>(new COneRecord);
            }};
}

/// The user at the screen, on another thread than the window; whom the window does not outlive.
class CUserThread {
 public:
    CUserThread(std::function<bool(CVirtualScreen&)> acts, CEvent& close)
        : m_thread([acts = std::move(acts), &close, &screen = Screen()] {
              const bool isDone = acts(screen) && screen.WaitUntilGone();
              EXPECT_TRUE(isDone);
              if (!isDone) close.Set();
          }) {}

 private:
    std::jthread m_thread;
};

class DisplayTest : public ::testing::Test {
 protected:
    DisplayTest() { Screen(); }
    DialogOutcome ShowActivity(std::function<bool(CVirtualScreen&)> acts,
                               const std::wstring& service = L"QBHTTPService") {
        const CUserThread user(std::move(acts), *m_close);
        return m_dialogs.ShowActivity(service, *m_close);
    }

    const std::shared_ptr<CEvent> m_close = CEvent::Create(EventReset::Manual).Value();
    CDisplayDialogs m_dialogs{kLibrary, ServicesOfOneRecord()};
};

TEST_F(DisplayTest, ClosesTheActivityWindowWhenItsUserOrTheEventSaysSo) {
    using Screen = CVirtualScreen;
    const std::function<bool(Screen&)> cases[] = {
        [](Screen& screen) { return screen.Press("Return"); },
        [](Screen& screen) { return screen.Press("KP_Enter"); },
        [](Screen& screen) { return screen.Press("Escape"); },
        [](Screen& screen) { return screen.AskToClose(); },
        [this](Screen&) {
            m_close->Set();
            return true;
        },
        [](Screen&) { return true; },  // the event is set already
    };
    for (const auto& closes : cases) {
        EXPECT_EQ(ShowActivity([&](Screen& screen) {
                      return m_close->Test() || (screen.FindWindow(kActivityTitle) && closes(screen));
                  }),
                  DialogOutcome::Closed);
    }
}

TEST_F(DisplayTest, ShowsRecordsInTheColoursOfTheirSeverityAndPausesOnSpace) {
    EXPECT_EQ(ShowActivity([](CVirtualScreen& screen) {
                  return screen.FindWindow(kActivityTitle) && screen.SeesColour(kErrorColour) &&
                         screen.SeesColour(kConnectedColour) && screen.Press("space") &&
                         screen.SeesColour(kPausedColour) && screen.Press("space") &&
                         screen.SeesColour(kConnectedColour) && screen.Press("Return");
              }),
              DialogOutcome::Closed);
}

TEST_F(DisplayTest, KeepsEnterInTheFilterFromClosingTheWindow) {
    EXPECT_EQ(ShowActivity([](CVirtualScreen& screen) {
                  // A filter that nothing passes, then back to the rows: Space pauses only there.
                  return screen.FindWindow(kActivityTitle) && screen.SeesColour(kErrorColour) &&
                         screen.Press("f", true) && screen.Press("z") && screen.Press("Return") &&
                         screen.Press("space") && screen.SeesColour(kPausedColour) && screen.Press("Escape");
              }),
              DialogOutcome::Closed);
}

TEST_F(DisplayTest, WaitsForAServiceThatIsNotThere) {
    EXPECT_EQ(ShowActivity(
                  [](CVirtualScreen& screen) {
                      return screen.FindWindow(kActivityTitle) && screen.SeesColour(kWaitingColour) &&
                             screen.Press("Escape");
                  },
                  L"Other"),
              DialogOutcome::Closed);
}

/// The activity dialog, which notes where its button was at first.
class CWatchedDlg final : public CServiceDlg {
 public:
    using CServiceDlg::CServiceDlg;
    std::atomic<int> fromRight = 0;
    std::atomic<int> fromBottom = 0;

 private:
    void OnInitDialog() override {
        CServiceDlg::OnInitDialog();
        const CRectangle button = Window().ItemRectangle(kDialogOk);
        fromRight = Window().ClientSize().width - button.left - button.width / 2;
        fromBottom = Window().ClientSize().height - button.top - button.height / 2;
    }
};

TEST_F(DisplayTest, KeepsTheButtonInTheCornerOfAResizedWindow) {
    CDisplay display(kLibrary, ServicesOfOneRecord());
    for (const CSize size : {CSize{500, 300}, CSize{1500, 900}}) {
        CWatchedDlg dialog(display.Open(), L"QBHTTPService");
        const CUserThread user(
            [&](CVirtualScreen& screen) {
                return screen.FindWindow(kActivityTitle) && screen.Resize(size.width, size.height) &&
                       screen.Click(size.width - dialog.fromRight, size.height - dialog.fromBottom);
            },
            *m_close);
        EXPECT_EQ(dialog.DoModal(m_close.get()), kDialogOk);
    }
}

TEST_F(DisplayTest, ShowsTheInvalidParameterUntilItIsAcknowledged) {
    const CUserThread user(
        [](CVirtualScreen& screen) {
            return screen.FindWindow("Invalid Parameter") && screen.Press("Return");
        },
        *m_close);
    EXPECT_EQ(m_dialogs.ShowInvalidParameter(L"@->x & \x1B[31m%s"), DialogOutcome::Closed);
}

TEST_F(DisplayTest, GivesAControlThatRefusesWhatItDoesNotKnow) {
    CComPtr<IDispatch> control;
    ASSERT_EQ(CreateComInstance(kActivityDisplayClass, control), S_OK);
    const wchar_t* names[] = {L"connect", L"argument"};
    DISPID ids[2] = {};
    EXPECT_EQ(control->GetIDsOfNames(IID_NULL, names, 1, 0, ids), S_OK);
    EXPECT_EQ(control->GetIDsOfNames(IID_NULL, names, 2, 0, ids), DISP_E_UNKNOWNNAME);
    const DISPID connect = ids[0];
    const wchar_t* messageLib = L"MessageLib";
    EXPECT_EQ(control->GetIDsOfNames(IID_NULL, &messageLib, 1, 0, ids), S_OK);

    const auto call = [&](DISPID id, CVariant argument, std::uint16_t flags = DISPATCH_METHOD) {
        DISPPARAMS parameters{&argument, nullptr, 1, 0};
        return control->Invoke(id, IID_NULL, 0, flags, &parameters, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(call(ids[0], CVariant(std::wstring_view(L"TrcQBHTTPService"))), S_OK);
    EXPECT_LT(call(ids[0], CVariant(std::wstring_view(L"TrcNoSuchService"))), 0);
    EXPECT_EQ(call(ids[0], CVariant(std::wstring_view(L"../TrcQBHTTPService"))), E_INVALIDARG);
    EXPECT_EQ(call(connect, CVariant(std::wstring_view(L"machine:Service"))), E_INVALIDARG);
    EXPECT_EQ(call(connect, CVariant(std::wstring_view(L":"))), E_INVALIDARG);
    EXPECT_EQ(call(connect, CVariant::FromI4(1)), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(call(99, CVariant(std::wstring_view(L":Service"))), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(call(connect, CVariant(std::wstring_view(L":Service")), DISPATCH_PROPERTYPUT),
              DISP_E_MEMBERNOTFOUND);
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    EXPECT_EQ(control->Invoke(connect, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr),
              E_INVALIDARG);
    EXPECT_EQ(call(connect, CVariant(std::wstring_view(L":Service"))), S_OK);
    EXPECT_EQ(call(connect, CVariant(std::wstring_view(L":QBHTTPService"))), S_OK);
}

// The display of a process is for good, so these run in processes of their own.

TEST(DisplayDeathTest, HasNoDisplayWhereNoneOpens) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto shows = [](const char* display) {
        if (display) {
            ::setenv("DISPLAY", display, 1);
        } else {
            ::unsetenv("DISPLAY");
        }
        CDisplayDialogs dialogs(kLibrary, ServicesOfOneRecord());
        const auto close = CEvent::Create(EventReset::Manual).Value();
        const bool isNone = dialogs.ShowActivity(L"QBHTTPService", *close) == DialogOutcome::NoDisplay &&
                            dialogs.ShowInvalidParameter(L"x") == DialogOutcome::NoDisplay;
        std::_Exit(isNone ? 0 : 1);
    };
    EXPECT_EXIT(shows(nullptr), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(shows("no-such-host.invalid:1"), ::testing::ExitedWithCode(0), "");
}

TEST(DisplayDeathTest, SurvivesTheLossOfItsDisplay) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto loses = [] {
        CVirtualScreen& screen = Screen();
        CDisplayDialogs dialogs(kLibrary, ServicesOfOneRecord());
        const auto close = CEvent::Create(EventReset::Manual).Value();
        std::thread user([&] {
            if (!screen.FindWindow(kActivityTitle)) std::_Exit(2);
            screen.Kill();
        });
        const bool isLost = dialogs.ShowActivity(L"QBHTTPService", *close) == DialogOutcome::NoDisplay &&
                            dialogs.ShowInvalidParameter(L"x") == DialogOutcome::NoDisplay;
        user.join();
        std::_Exit(isLost ? 0 : 1);
    };
    EXPECT_EXIT(loses(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quorbel
