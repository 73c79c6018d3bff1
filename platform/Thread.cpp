#include "platform/Thread.h"

#include <pthread.h>
#include <signal.h>

#include <string>
#include <system_error>

namespace quorbel {

CResult<std::thread> StartThread(const char* name, std::function<void()> work) {
    try {
        return std::thread([shortName = std::string(name).substr(0, 15), work = std::move(work)] {
            sigset_t signals;
            ::sigemptyset(&signals);
            ::sigaddset(&signals, SIGINT);
            ::sigaddset(&signals, SIGTERM);
            ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
            ::pthread_setname_np(::pthread_self(), shortName.c_str());
            work();
        });
    } catch (const std::system_error& error) {
        return ErrorFromErrno(error.code().value());
    }
}

}  // namespace quorbel
