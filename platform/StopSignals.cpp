#include "platform/StopSignals.h"

#include <cerrno>
#include <signal.h>

#include "platform/Precondition.h"

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

ErrorCode IgnoreSignal(int number) {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    return ::sigaction(number, &action, nullptr) == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
}

}  // namespace

ErrorCode IgnoreFileSizeSignal() {
    return IgnoreSignal(SIGXFSZ);
}

ErrorCode SetOnStopSignals(std::shared_ptr<CEvent> stop) {
    Require(stop != nullptr);
    StopEvent() = std::move(stop);
    g_stop = StopEvent().get();
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    action.sa_flags = SA_RESTART;
    for (int number : {SIGINT, SIGTERM}) {
        if (::sigaction(number, &action, nullptr) != 0) return ErrorFromErrno(errno);
    }
    for (int number : {SIGPIPE, SIGHUP}) {
        if (const ErrorCode error = IgnoreSignal(number); error != ErrorCode::Success) return error;
    }
    return IgnoreFileSizeSignal();
}

}  // namespace quorbel
