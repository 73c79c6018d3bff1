#pragma once

#include <cstdint>
#include <signal.h>
#include <sys/user.h>
#include <ucontext.h>

#ifndef __x86_64__
#error \
    "Faults are described by the registers of x86-64: other processors need a record and a dump of their own."
#endif

namespace quorbel {

/// A fault as its signal told it. It lies in the memory of the process that faulted, for as long as its
/// thread waits; the crash-report helper is given its address and reads it there, so it is plain data of one
/// layout.
struct CFaultRecord {
    static constexpr std::uint64_t kMark = 0x31544C5541464251;  ///< "QBFAULT1"
    static constexpr std::uint32_t kMostParameters = 2;

    std::uint64_t mark;     ///< kMark
    std::uint32_t size;     ///< of this structure
    std::uint32_t code;     ///< of the exception, for example 0xC0000005
    std::uint64_t address;  ///< of the instruction
    std::uint32_t parameterCount;
    std::uint32_t thread;
    /// Of a memory access: 0 for a read, 1 for a write, 8 for an execution; and the address in question.
    std::uint64_t parameters[kMostParameters];
    siginfo_t signal;
    ucontext_t context;  ///< what it points to is there as long as the record
    user_fpregs_struct floatingPoint;
};

/// What is wrong, as codes.
inline constexpr std::uint32_t kAccessViolation = 0xC0000005;
inline constexpr std::uint32_t kIntegerDivideByZero = 0xC0000094;
inline constexpr std::uint32_t kFloatInvalidOperation = 0xC0000090;
inline constexpr std::uint32_t kIllegalInstruction = 0xC000001D;
inline constexpr std::uint32_t kBreakpoint = 0x80000003;
inline constexpr std::uint32_t kFatalAppExit = 0x40000015;  ///< abort() or std::terminate()

/// The record of a signal.
CFaultRecord MakeFaultRecord(const siginfo_t& signal, const ucontext_t& context) noexcept;
/// The record of the calling thread, for an end without a signal.
CFaultRecord MakeFaultRecord(std::uint32_t code) noexcept;

}  // namespace quorbel
