#include "platform/Thread.h"

#include <array>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

#include "platform/Precondition.h"
#include "platform/fault/AlternateStack.h"

namespace quorbel {

namespace {

/// Blocks every signal but those that a thread raises by its own fault, for as long as it lives. A thread
/// begins with the mask of the one that starts it, so that it has the signals blocked from its first
/// instruction on.
class CBlockedSignals {
 public:
    CBlockedSignals() noexcept {
        sigset_t signals;
        ::sigfillset(&signals);
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) ::sigdelset(&signals, fault);
        ::pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    }
    ~CBlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    CBlockedSignals(const CBlockedSignals&) = delete;
    CBlockedSignals& operator=(const CBlockedSignals&) = delete;

 private:
    sigset_t m_before;
};

}  // namespace

CResult<std::thread> StartThread(const char* name, std::function<void()> work) {
    Require(name && work);
    try {
        const CBlockedSignals blocked;
        return std::thread([ownName = std::string(name), work = std::move(work)] {
            const CAlternateStack faults;
            NameThisThread(ownName.c_str());
            work();
        });
    } catch (const std::system_error& error) {
        return ErrorFromErrno(error.code().value());
    }
}

void GiveWayToOtherThreads() noexcept {
    constexpr int kNiceness = 19;
    // On this system a priority is a thread's own, and a thread begins with that of the one that starts it.
    Ignore(::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kNiceness));
    // Such a thread takes no processor from another one when it wakes up.
    const sched_param none{};
    Ignore(::sched_setscheduler(0, SCHED_BATCH, &none));
}

void NameThisThread(const char* name) noexcept {
    std::array<char, 16> shortName{};
    std::strncpy(shortName.data(), name, shortName.size() - 1);
    ::pthread_setname_np(::pthread_self(), shortName.data());
}

std::uint32_t CurrentThreadId() noexcept {
    return static_cast<std::uint32_t>(::gettid());
}

}  // namespace quorbel
