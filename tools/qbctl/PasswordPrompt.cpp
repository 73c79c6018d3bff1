#include "tools/qbctl/PasswordPrompt.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include "platform/FileDescriptor.h"
#include "platform/Text.h"
#include "tools/qbctl/Terminal.h"

namespace quorbel {

namespace {

constexpr std::size_t kLongestPassword = 1000;  // bytes of UTF-8

/// Holds back the signals that end the program, for as long as it lives: those that have come meanwhile take
/// effect at its end.
class CHeldSignals {
 public:
    CHeldSignals() {
        sigset_t signals;
        ::sigemptyset(&signals);
        for (int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::sigaddset(&signals, number);
        ::pthread_sigmask(SIG_BLOCK, &signals, &m_before);
        m_arrived = CFileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
    }
    ~CHeldSignals() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CHeldSignals(const CHeldSignals&) = delete;
    CHeldSignals& operator=(const CHeldSignals&) = delete;

    /// Waits for input; false when a signal came first or there is nothing to wait with.
    bool WaitForInput() const {
        std::array<pollfd, 2> entries{{{STDIN_FILENO, POLLIN, 0}, {m_arrived.Get(), POLLIN, 0}}};
        int ready = -1;
        do {
            ready = ::poll(entries.data(), entries.size(), -1);
        } while (ready < 0 && errno == EINTR);
        return ready > 0 && entries[1].revents == 0;
    }

 private:
    sigset_t m_before{};
    CFileDescriptor m_arrived;
};

/// The terminal on standard input without echo. It cannot be suspended meanwhile either, which would leave it
/// that way to the shell.
class CQuietTerminal {
 public:
    CQuietTerminal() {
        if (::tcgetattr(STDIN_FILENO, &m_before) != 0) return;
        termios quiet = m_before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        quiet.c_cc[VSUSP] = _POSIX_VDISABLE;
        m_isQuiet = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    ~CQuietTerminal() {
        if (m_isQuiet) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
    }
    CQuietTerminal(const CQuietTerminal&) = delete;
    CQuietTerminal& operator=(const CQuietTerminal&) = delete;

    bool IsQuiet() const noexcept { return m_isQuiet; }

 private:
    termios m_before{};
    bool m_isQuiet = false;
};

enum class LineEnd { Complete, TooLong, NoInput };

struct CLine {
    CSecretBytes text;
    LineEnd end;
};

/// Reads byte by byte, so that nothing of the line remains in a buffer and nothing behind it is taken.
template <class WaitForInput>
CLine ReadLine(const WaitForInput& waitForInput) {
    std::string line;
    line.reserve(kLongestPassword + 2);
    LineEnd end = LineEnd::NoInput;
    while (waitForInput()) {
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count == 1 && byte != '\n' && line.size() <= kLongestPassword + 1) {
            line.push_back(byte);
            continue;
        }
        if (count == 1 && byte != '\n') {
            end = LineEnd::TooLong;
        } else if (count == 1 || (count == 0 && !line.empty())) {
            end = LineEnd::Complete;
        }
        break;
    }
    if (line.ends_with('\r')) line.pop_back();
    if (line.size() > kLongestPassword && end == LineEnd::Complete) end = LineEnd::TooLong;
    return {CSecretBytes(std::move(line)), end};
}

CLine AskOnce(const char* question) {
    const CHeldSignals signals;
    const CQuietTerminal terminal;
    if (!terminal.IsQuiet()) return {CSecretBytes(), LineEnd::NoInput};
    std::fputs(question, stderr);
    CLine line = ReadLine([&] { return signals.WaitForInput(); });
    std::fputc('\n', stderr);
    return line;
}

/// Says what is wrong with the line, if anything.
std::optional<CSecretText> ToPassword(const CLine& line) {
    if (line.end == LineEnd::TooLong) {
        Ignore(Fail(L"The password is too long: it may have up to " + std::to_wstring(kLongestPassword) +
                    L" bytes."));
        return std::nullopt;
    }
    if (line.end == LineEnd::NoInput || line.text.IsEmpty()) {
        Ignore(Fail(L"No password was given."));
        return std::nullopt;
    }
    auto text = FromUtf8Strict(line.text.Get());
    if (!text) {
        Ignore(Fail(L"The password is not valid UTF-8."));
        return std::nullopt;
    }
    return CSecretText(*std::move(text));
}

}  // namespace

std::optional<CSecretText> AskForNewPassword() {
    if (::isatty(STDIN_FILENO) == 0) return ToPassword(ReadLine([] { return true; }));
    const CLine first = AskOnce("New password: ");
    auto password = ToPassword(first);
    if (!password) return std::nullopt;
    const CLine second = AskOnce("The same again: ");
    if (second.end == LineEnd::Complete && second.text.Get() == first.text.Get()) return password;
    Ignore(Fail(L"The two passwords are not the same."));
    return std::nullopt;
}

}  // namespace quorbel
