#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

namespace quorbel {

/// An X server without hardware, and a client of it that plays the user. It ends with its last client. The
/// user's calls wait for what they name, and fail (false) only when that takes unreasonably long.
class CVirtualScreen {
 public:
    static std::unique_ptr<CVirtualScreen> Start();
    ~CVirtualScreen();

    /// For the environment variable DISPLAY.
    const std::string& Name() const noexcept { return m_name; }
    void Kill() const;

    /// Finds the window with that title, once it is in view; the calls below are about it.
    bool FindWindow(const std::string& title);
    bool Press(const char* keyName, bool withControl = false);
    bool Click(int x, int y);
    bool Resize(int width, int height);
    /// As a window manager asks a window to close.
    bool AskToClose();
    /// Waits until a pixel of the window has that colour (0xRRGGBB).
    bool SeesColour(std::uint32_t colour);
    bool WaitUntilGone();

    class CUser;
    CVirtualScreen(pid_t server, std::string name, std::unique_ptr<CUser> user);

 private:
    const pid_t m_server;
    const std::string m_name;
    std::unique_ptr<CUser> m_user;
};

}  // namespace quorbel
