#include "tests/support/Faults.h"

namespace quorbel {

// Volatile instructions may fault as far as the compiler knows, so that exceptions can leave them.

[[gnu::noinline]] void WriteToNull() {
    asm volatile("movl $1, (%0)" ::"r"(0L) : "memory");
}

[[gnu::noinline]] void ReadFromWild() {
    asm volatile("movl (%0), %%eax" ::"r"(0x8000000000000000L) : "eax", "memory");
}

[[gnu::noinline]] void CallNull() {
    using Function = void (*)();
    Function function = nullptr;
    asm volatile("" : "+r"(function));
    function();
}

[[gnu::noinline]] void DivideByZero() {
    asm volatile("xorl %%edx, %%edx\n\tmovl $1, %%eax\n\tidivl %0" ::"r"(0) : "eax", "edx", "cc");
}

[[gnu::noinline]] void Trap() {
    asm volatile("ud2");
}

[[gnu::noinline]] void RunIntoBreakpoint() {
    asm volatile("int3");
}

namespace {

[[gnu::noinline]] int Deeper(int depth) {
    volatile char used[512];
    used[0] = static_cast<char>(depth);
    // There is no such depth.
    return depth < 0 ? 0 : Deeper(depth + 1) + used[0];
}

}  // namespace

void OverflowStack() {
    volatile const int result = Deeper(0);
    static_cast<void>(result);
}

}  // namespace quorbel
