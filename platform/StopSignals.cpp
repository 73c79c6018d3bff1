#include "platform/StopSignals.h"

#include <signal.h>

#include <cerrno>

namespace quorbel {

namespace {

std::shared_ptr<CEvent>& StopEvent() {
    static std::shared_ptr<CEvent> event;
    return event;
}
CEvent* g_stop = nullptr;  // what the handler may touch

void OnStopSignal(int) {
    const int saved = errno;
    g_stop->Set();
    errno = saved;
}

}  // namespace

ErrorCode SetOnStopSignals(std::shared_ptr<CEvent> stop) {
    StopEvent() = std::move(stop);
    g_stop = StopEvent().get();
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    action.sa_flags = SA_RESTART;
    for (int number : {SIGINT, SIGTERM}) {
        if (::sigaction(number, &action, nullptr) != 0) return ErrorFromErrno(errno);
    }
    action.sa_handler = SIG_IGN;
    for (int number : {SIGPIPE, SIGHUP}) {
        if (::sigaction(number, &action, nullptr) != 0) return ErrorFromErrno(errno);
    }
    return ErrorCode::Success;
}

}  // namespace quorbel
