#include "platform/fault/FaultRecord.h"

#include <cstring>
#include <unistd.h>

namespace quorbel {

namespace {

static_assert(sizeof(user_fpregs_struct) == sizeof(*mcontext_t::fpregs));

/// Bits of the processor's error code of a page fault.
constexpr greg_t kWasWrite = 1 << 1;
constexpr greg_t kWasExecution = 1 << 4;

std::uint32_t CodeOf(const siginfo_t& signal) noexcept {
    switch (signal.si_signo) {
        case SIGFPE: return signal.si_code == FPE_INTDIV ? kIntegerDivideByZero : kFloatInvalidOperation;
        case SIGILL: return kIllegalInstruction;
        case SIGTRAP: return kBreakpoint;
        case SIGABRT: return kFatalAppExit;
        default: return kAccessViolation;
    }
}

void DescribeAccess(CFaultRecord& record) noexcept {
    const greg_t error = record.context.uc_mcontext.gregs[REG_ERR];
    record.parameterCount = 2;
    record.parameters[0] = (error & kWasExecution) != 0 ? 8 : (error & kWasWrite) != 0 ? 1 : 0;
    // The processor does not tell an address that is none at all.
    const bool isKnown = record.signal.si_code != SI_KERNEL;
    record.parameters[1] = isKnown ? reinterpret_cast<std::uintptr_t>(record.signal.si_addr) : ~0ULL;
}

CFaultRecord Begin(const ucontext_t& context) noexcept {
    CFaultRecord record{};
    record.mark = CFaultRecord::kMark;
    record.size = sizeof record;
    record.thread = static_cast<std::uint32_t>(::gettid());
    record.context = context;
    if (context.uc_mcontext.fpregs)
        std::memcpy(&record.floatingPoint, context.uc_mcontext.fpregs, sizeof record.floatingPoint);
    record.address = static_cast<std::uint64_t>(context.uc_mcontext.gregs[REG_RIP]);
    return record;
}

}  // namespace

CFaultRecord MakeFaultRecord(const siginfo_t& signal, const ucontext_t& context) noexcept {
    CFaultRecord record = Begin(context);
    record.signal = signal;
    record.code = CodeOf(signal);
    if (record.code == kAccessViolation) DescribeAccess(record);
    return record;
}

CFaultRecord MakeFaultRecord(std::uint32_t code) noexcept {
    ucontext_t here{};
    ::getcontext(&here);
    CFaultRecord record = Begin(here);
    record.context.uc_mcontext.fpregs = nullptr;
    record.code = code;
    record.signal.si_signo = SIGABRT;
    return record;
}

}  // namespace quorbel
