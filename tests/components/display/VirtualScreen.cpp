#include "tests/components/display/VirtualScreen.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#undef Success

#include "platform/FileDescriptor.h"

namespace quorbel {

namespace {

constexpr int kLongMilliseconds = 60'000;

/// Starts the server, which writes the number of its display once it listens; empty when it did not.
std::pair<pid_t, std::string> StartServer() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return {-1, {}};
    const CFileDescriptor reader(ends[0]);
    CFileDescriptor writer(ends[1]);
    constexpr int kInServer = 3;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, writer.Get(), kInServer);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const char* arguments[] = {"Xvfb",         "-displayfd", "3",   "-screen",    "0",
                               "1600x1000x24", "-nolisten",  "tcp", "-terminate", nullptr};
    pid_t server = -1;
    const int error = ::posix_spawnp(&server, arguments[0], &actions, nullptr,
                                     const_cast<char* const*>(arguments), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) return {-1, {}};
    writer = CFileDescriptor();
    std::string number;
    for (char character = 0; ::read(reader.Get(), &character, 1) == 1 && character != '\n';)
        number += character;
    return {server, number.empty() ? number : ":" + number};
}

}  // namespace

/// The user's connection.
class CVirtualScreen::CUser {
 public:
    explicit CUser(Display* display) : m_display(display) {
        // A window may go while it is asked about.
        ::XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
        ::XSelectInput(m_display, DefaultRootWindow(m_display), SubstructureNotifyMask);
    }
    ~CUser() { ::XCloseDisplay(m_display); }
    CUser(const CUser&) = delete;
    CUser& operator=(const CUser&) = delete;

    bool FindWindow(const std::string& title) {
        do {
            m_window = Find(title);
            if (m_window != 0) return true;
        } while (WaitForEvent());
        return false;
    }

    bool WaitUntilGone() {
        while (IsInView(m_window))
            if (!WaitForEvent()) return false;
        return true;
    }

    bool Press(const char* keyName, bool withControl) {
        // There is no window manager to give it the focus.
        ::XSetInputFocus(m_display, m_window, RevertToParent, CurrentTime);
        XEvent event{};
        event.xkey.window = m_window;
        event.xkey.root = DefaultRootWindow(m_display);
        event.xkey.same_screen = True;
        event.xkey.time = ++m_time;
        event.xkey.state = withControl ? ControlMask : 0;
        event.xkey.keycode = ::XKeysymToKeycode(m_display, ::XStringToKeysym(keyName));
        return event.xkey.keycode != 0 && Send(event, KeyPress, KeyPressMask) &&
               Send(event, KeyRelease, KeyReleaseMask);
    }

    bool Click(int x, int y) {
        XEvent event{};
        event.xbutton.window = m_window;
        event.xbutton.root = DefaultRootWindow(m_display);
        event.xbutton.same_screen = True;
        event.xbutton.time = m_time += 1000;
        event.xbutton.button = Button1;
        event.xbutton.x = x;
        event.xbutton.y = y;
        if (!Send(event, ButtonPress, ButtonPressMask)) return false;
        event.xbutton.state = Button1Mask;
        return Send(event, ButtonRelease, ButtonReleaseMask);
    }

    bool Resize(int width, int height) {
        ::XResizeWindow(m_display, m_window, static_cast<unsigned>(width), static_cast<unsigned>(height));
        ::XSync(m_display, False);
        return true;
    }

    bool AskToClose() {
        XEvent event{};
        event.xclient.window = m_window;
        event.xclient.format = 32;
        event.xclient.message_type = ::XInternAtom(m_display, "WM_PROTOCOLS", False);
        event.xclient.data.l[0] = static_cast<long>(::XInternAtom(m_display, "WM_DELETE_WINDOW", False));
        return Send(event, ClientMessage, NoEventMask);
    }

    bool SeesColour(std::uint32_t colour) {
        // A window says nothing when it has drawn: it is looked at until it has.
        for (int looks = 0; looks < 2000; ++looks) {
            if (HasColour(colour)) return true;
            ::poll(nullptr, 0, kLongMilliseconds / 2000);
        }
        return false;
    }

 private:
    Window Find(const std::string& title) {
        Window root = 0;
        Window parent = 0;
        Window* children = nullptr;
        unsigned count = 0;
        if (!::XQueryTree(m_display, DefaultRootWindow(m_display), &root, &parent, &children, &count))
            return 0;
        Window found = 0;
        for (unsigned i = 0; i < count; ++i)
            if (TitleOf(children[i]) == title && IsInView(children[i])) found = children[i];
        if (children) ::XFree(children);
        return found;
    }
    std::string TitleOf(Window window) {
        char* name = nullptr;
        if (!::XFetchName(m_display, window, &name) || !name) return {};
        const std::string title = name;
        ::XFree(name);
        return title;
    }
    bool IsInView(Window window) {
        XWindowAttributes attributes{};
        return ::XGetWindowAttributes(m_display, window, &attributes) && attributes.map_state == IsViewable;
    }
    bool WaitForEvent() {
        pollfd entry{ConnectionNumber(m_display), POLLIN, 0};
        if (::XPending(m_display) == 0 && ::poll(&entry, 1, kLongMilliseconds) != 1) return false;
        XEvent event;
        while (::XPending(m_display) != 0) ::XNextEvent(m_display, &event);
        return true;
    }
    bool Send(XEvent& event, int type, long mask) {
        event.type = type;
        const bool isSent = ::XSendEvent(m_display, m_window, True, mask, &event) != 0;
        ::XSync(m_display, False);
        return isSent;
    }
    bool HasColour(std::uint32_t colour) {
        XWindowAttributes size{};
        if (!::XGetWindowAttributes(m_display, m_window, &size)) return false;
        XImage* const image = ::XGetImage(m_display, m_window, 0, 0, static_cast<unsigned>(size.width),
                                          static_cast<unsigned>(size.height), AllPlanes, ZPixmap);
        if (!image) return false;
        bool isThere = false;
        for (int y = 0; y < size.height && !isThere; ++y)
            for (int x = 0; x < size.width && !isThere; ++x)
                isThere = (XGetPixel(image, x, y) & 0xFFFFFF) == colour;
        XDestroyImage(image);
        return isThere;
    }

    Display* const m_display;
    Window m_window = 0;
    Time m_time = 1000;
};

std::unique_ptr<CVirtualScreen> CVirtualScreen::Start() {
    const auto [server, name] = StartServer();
    if (name.empty()) return nullptr;
    Display* const display = ::XOpenDisplay(name.c_str());
    if (!display) return nullptr;
    return std::make_unique<CVirtualScreen>(server, name, std::make_unique<CUser>(display));
}

CVirtualScreen::CVirtualScreen(pid_t server, std::string name, std::unique_ptr<CUser> user)
    : m_server(server), m_name(std::move(name)), m_user(std::move(user)) {}

CVirtualScreen::~CVirtualScreen() {
    m_user.reset();  // before the server: a client that loses it ends its process
    Kill();
    ::waitpid(m_server, nullptr, 0);
}

void CVirtualScreen::Kill() const {
    ::kill(m_server, SIGKILL);
}

bool CVirtualScreen::FindWindow(const std::string& title) {
    return m_user->FindWindow(title);
}
bool CVirtualScreen::Press(const char* keyName, bool withControl) {
    return m_user->Press(keyName, withControl);
}
bool CVirtualScreen::Click(int x, int y) {
    return m_user->Click(x, y);
}
bool CVirtualScreen::Resize(int width, int height) {
    return m_user->Resize(width, height);
}
bool CVirtualScreen::AskToClose() {
    return m_user->AskToClose();
}
bool CVirtualScreen::SeesColour(std::uint32_t colour) {
    return m_user->SeesColour(colour);
}
bool CVirtualScreen::WaitUntilGone() {
    return m_user->WaitUntilGone();
}

}  // namespace quorbel
