#include "platform/fault/Faults.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>
#include <unwind.h>

#include "platform/Precondition.h"
#include "platform/fault/AlternateStack.h"
#include "platform/fault/FaultRecord.h"
#include "platform/fault/FaultText.h"
#include "platform/fault/LoadedCode.h"

namespace quorbel {

namespace {

constexpr int kExitStatus = 1;

std::atomic<IFaultResponse*> g_response = nullptr;

struct CThreadFaults {
    const CFaultScope* scope = nullptr;  ///< the innermost one
    bool isHandling = false;             ///< from a fault until it arrives at a scope
};
thread_local constinit CThreadFaults t_faults;

// The way to the scope.

struct CWalk {
    const std::uintptr_t
        begin;  ///< the instruction whose frame is the first to look at; 0 for that of the walker
    const std::uintptr_t end;
    bool hasBegun;
    bool hasArrived = false;
};

_Unwind_Reason_Code LookAtFrame(_Unwind_Context* frame, void* context) {
    auto& walk = *static_cast<CWalk*>(context);
    int isBefore = 0;
    const std::uintptr_t instruction = _Unwind_GetIPInfo(frame, &isBefore);
    const bool isFirst = !walk.hasBegun && instruction == walk.begin;
    walk.hasBegun = walk.hasBegun || isFirst;
    if (!walk.hasBegun) return _URC_NO_REASON;
    // What is given for a frame is where the stack was in it: at the scope's own frame still below the scope.
    if (_Unwind_GetCFA(frame) > walk.end) {
        walk.hasArrived = true;
        return _URC_NORMAL_STOP;
    }
    const CodeOwner owner = OwnerOfCode(instruction - (isBefore == 0 ? 1 : 0));
    // Only our own code can be left at any instruction; others' code only where it calls.
    const bool isPassable = owner == CodeOwner::Own || (owner == CodeOwner::Runtime && !isFirst);
    return isPassable ? _URC_NO_REASON : _URC_NORMAL_STOP;
}

/// True when an exception thrown at that instruction (0: here) would arrive at the thread's scope.
bool LeadsToScope(std::uintptr_t instruction) noexcept {
    if (!t_faults.scope) return false;
    CWalk walk{instruction, reinterpret_cast<std::uintptr_t>(t_faults.scope), instruction == 0};
    _Unwind_Backtrace(LookAtFrame, &walk);
    return walk.hasArrived;
}

/// A call of what is no function has left its caller's frame alone: the exception leaves from the call.
void ReturnFromWildCall(const CFaultRecord& fault, ucontext_t& context) noexcept {
    auto& registers = context.uc_mcontext.gregs;
    const auto target = static_cast<std::uint64_t>(registers[REG_RIP]);
    constexpr std::uint64_t kExecution = 8;
    const bool isCall = fault.code == kAccessViolation && fault.parameters[0] == kExecution;
    // Below the end of the stack that faults there is none of it.
    if (!isCall || fault.parameters[1] != target) return;
    const auto* const top = reinterpret_cast<const std::uint64_t*>(registers[REG_RSP]);  // NOLINT
    if (OwnerOfCode(*top - 1) != CodeOwner::Own) return;
    registers[REG_RIP] = static_cast<greg_t>(*top - 1);
    registers[REG_RSP] += sizeof *top;
}

// The end.

void EndNow(int) {
    ::_exit(kExitStatus);
}

/// Whatever hangs from here on, the process ends.
void BoundTheEnd() noexcept {
    struct sigaction action {};
    action.sa_handler = EndNow;
    ::sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    ::sigemptyset(&alarm);
    ::sigaddset(&alarm, SIGALRM);
    ::pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    ::alarm(kLongestEndSeconds);
}

/// One thread ends the process; others that would do so too wait for it. A thread that faults in ending it
/// ends it at once.
void BeTheOneThatEnds() noexcept {
    static std::atomic<pid_t> ending = 0;
    pid_t first = 0;
    const pid_t self = ::gettid();
    if (ending.compare_exchange_strong(first, self)) return BoundTheEnd();
    if (first == self) EndNow(0);
    for (;;) ::pause();
}

enum class Report { Wanted, Written };

[[noreturn]] void EndWith(const CFaultRecord& fault, Report report) noexcept {
    BeTheOneThatEnds();
    IFaultResponse& response = *g_response;
    if (report == Report::Wanted) response.WriteReport(&fault, IFaultResponse::Wait::Bounded);
    response.WriteLastWords(fault);
    ::_exit(kExitStatus);
}

[[noreturn]] void EndWith(std::string_view text) noexcept {
    BeTheOneThatEnds();
    g_response.load()->WriteLastWords(text);
    ::_exit(kExitStatus);
}

CFaultText TextOf(const CException& exception) noexcept {
    std::array<wchar_t, 1024> wide{};
    CFaultText text;
    if (!exception.GetErrorMessage(wide.data(), wide.size())) return text;
    for (const wchar_t* next = wide.data(); *next != L'\0'; ++next)
        text.Append(*next < 0x80 ? static_cast<char>(*next) : '?');
    return text;
}

/// The text of an exception that is no framework's.
CFaultText TextOfCurrentException() noexcept {
    CFaultText text;
    text.Append("uncaught exception");
    try {
        throw;
    } catch (const std::exception& exception) {
        text.Append(": ").Append(exception.what());
    } catch (...) {
        text.Append(" of type ").Append(abi::__cxa_current_exception_type()->name());
    }
    return text;
}

/// The fault of which the exception tells, thrown through what lets none pass, has its report already.
void EndIfFault() noexcept {
    try {
        throw;
    } catch (const CException* fault) {
        EndWith(TextOf(*fault).View());
    } catch (...) {
        return;
    }
}

void OnTerminate() {
    const CFaultRecord here = MakeFaultRecord(kFatalAppExit);
    if (!abi::__cxa_current_exception_type()) EndWith(here, Report::Wanted);
    EndIfFault();
    BeTheOneThatEnds();
    g_response.load()->WriteReport(&here, IFaultResponse::Wait::Bounded);
    g_response.load()->WriteLastWords(TextOfCurrentException().View());
    // Not by the handler before: it aborts, which would be a fault of its own.
    ::_exit(kExitStatus);
}

// Faults.

/// The last is what the C library does when it finds its lists overwritten, and an assertion that fails.
constexpr std::array kFaultSignals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT};

void OnFault(int, siginfo_t* signal, void* raw) {
    auto& context = *static_cast<ucontext_t*>(raw);
    // After a breakpoint the processor stands behind it.
    if (signal->si_signo == SIGTRAP && signal->si_code == SI_KERNEL) --context.uc_mcontext.gregs[REG_RIP];
    const CFaultRecord fault = MakeFaultRecord(*signal, context);
    const bool isSent = signal->si_code <= 0;  // as that of abort() is, by the process itself
    if (t_faults.isHandling || isSent || !t_faults.scope) EndWith(fault, Report::Wanted);
    t_faults.isHandling = true;
    ReturnFromWildCall(fault, context);
    if (!LeadsToScope(static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP])))
        EndWith(fault, Report::Wanted);
    IFaultResponse& response = *g_response;
    response.WriteReport(&fault, IFaultResponse::Wait::UntilWritten);
    response.Throw(&fault);
    EndWith(fault, Report::Written);
}

/// What a broken contract of the platform layer does once faults are handled.
void OnInvalidParameter() {
    IFaultResponse* const response = g_response;
    constexpr std::string_view kText = "\"invalid system call parameter\"";
    const bool isThrown = !t_faults.isHandling && LeadsToScope(0);
    if (!isThrown) {
        BeTheOneThatEnds();
        response->WriteReport(nullptr, IFaultResponse::Wait::Bounded);
        response->WriteLastWords(kText);
        ::_exit(kExitStatus);
    }
    t_faults.isHandling = true;
    response->WriteReport(nullptr, IFaultResponse::Wait::UntilWritten);
    response->Throw(nullptr);
    EndWith(kText);
}

}  // namespace

CFaultScope::CFaultScope() noexcept : m_outer(t_faults.scope) {
    t_faults.scope = this;
}

CFaultScope::~CFaultScope() {
    t_faults.scope = m_outer;
    t_faults.isHandling = false;
}

bool TakeCaughtFault(std::source_location where) noexcept {
    try {
        throw;
    } catch (CException* exception) {
        const std::unique_ptr<CException> owned(exception);
        if (IFaultResponse* const response = g_response) response->OnCaught(*owned, where);
        return true;
    } catch (...) {
        return false;
    }
}

ErrorCode HandleFaults(IFaultResponse& response) {
    // For the first thread's whole life; the process's end takes it.
    static const auto& stack = *new CAlternateStack;  // NOLINT(cppcoreguidelines-owning-memory)
    Ignore(stack);
    NoteLoadedCode();
    SetInvalidParameterTrap(OnInvalidParameter);
    g_response = &response;
    std::set_terminate(OnTerminate);
    struct sigaction action {};
    action.sa_sigaction = OnFault;
    // The signal stays open: a fault during the handling has to arrive as well.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    for (const int number : kFaultSignals) {
        if (::sigaction(number, &action, nullptr) != 0) return ErrorFromErrno(errno);
    }
    return ErrorCode::Success;
}

}  // namespace quorbel
