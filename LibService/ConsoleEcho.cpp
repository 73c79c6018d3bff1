#include "LibService/ConsoleEcho.h"

#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/VisibleText.h"

namespace quorbel {

CResult<std::shared_ptr<CConsoleEcho>> CConsoleEcho::Create(int descriptor) {
    auto writer = CTerminalWriter::Open(descriptor);
    if (!writer.IsOk()) return writer.Error();
    auto stop = CEvent::Create(EventReset::Manual);
    if (!stop.IsOk()) return stop.Error();
    auto wake = CEvent::Create(EventReset::Auto);
    if (!wake.IsOk()) return wake.Error();
    auto echo = std::make_shared<CConsoleEcho>(std::move(writer).Value(), stop.Value(), wake.Value());
    auto thread = StartThread("ConsoleEcho", [raw = echo.get()] { raw->Run(); });
    if (!thread.IsOk()) return thread.Error();
    echo->m_thread = std::move(thread).Value();
    return echo;
}

CConsoleEcho::CConsoleEcho(std::unique_ptr<CTerminalWriter> writer, std::shared_ptr<CEvent> stop,
                           std::shared_ptr<CEvent> wake)
    : m_writer(std::move(writer)), m_stop(std::move(stop)), m_wake(std::move(wake)) {}

CConsoleEcho::~CConsoleEcho() {
    m_stop->Set();
    if (m_thread.joinable()) m_thread.join();
}

void CConsoleEcho::OnRecord(std::string_view object, std::wstring_view text) noexcept try {
    std::wstring line = FromUtf8(object);
    line.append(L": ").append(text);
    Queue(ToVisibleUtf8(line) + "\n");
} catch (const std::exception&) {
    return;  // out of memory: the line is dropped
}

void CConsoleEcho::Queue(std::string line) {
    {
        const std::lock_guard guard(m_lock);
        if (m_lines == kMostLines || m_waiting.size() + line.size() > kMostBytes) {
            ++m_dropped;
            return;
        }
        m_waiting += line;
        ++m_lines;
    }
    m_wake->Set();
}

std::string CConsoleEcho::TakeLines() {
    const std::lock_guard guard(m_lock);
    std::string lines = std::exchange(m_waiting, {});
    m_lines = 0;
    if (m_dropped != 0) lines += "(" + std::to_string(std::exchange(m_dropped, 0)) + " lines dropped)\n";
    return lines;
}

void CConsoleEcho::Run() noexcept try {
    for (;;) {
        const auto woken = WaitForAny({m_wake.get(), m_stop.get()});
        const ErrorCode code = m_writer->Write(TakeLines(), *m_stop);
        // A terminal that went away does not come back; what is queued from now on is dropped at the limit.
        if (code != ErrorCode::Success || !woken.IsOk()) return;
        if (woken.Value() == 1) return;
    }
} catch (const std::exception&) {
    return;  // out of memory: the echo ends, the service goes on
}

}  // namespace quorbel
