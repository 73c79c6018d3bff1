#pragma once

#include <chrono>
#include <csetjmp>
#include <cstdint>

struct lua_State;

namespace quorbel {

/// Ends a script whose time is up: by a jump out of Lua to where its run began, past whatever the script
/// would still do. (An error could be caught, and runs message handlers and closes variables where no hook is
/// called.) Its state must not be used afterwards. Functions that Lua calls hold nothing that has to be
/// destroyed, because of this jump and those of Lua's own errors. One thread.
class CLuaWatch {
 public:
    using Time = std::chrono::steady_clock::time_point;

    CLuaWatch(Time (*now)(), std::chrono::steady_clock::duration time) : m_now(now), m_end(now() + time) {}

    /// Where the jump goes: the caller of setjmp(Escape()) stays in its function while the script runs.
    std::jmp_buf& Escape() noexcept { return m_escape; }

    /// Does not return when the time is up.
    void Check() {
        if (m_now() >= m_end) std::longjmp(m_escape, 1);
    }
    /// The same, now and then: for loops that Lua sees nothing of. A step is about the time of one
    /// comparison.
    void Spend(std::uint64_t steps = 1) {
        m_spent += steps;
        if (m_spent < kStepsBetweenChecks) return;
        m_spent = 0;
        Check();
    }

    /// The watch of the run that a state, or a coroutine of it, belongs to.
    static CLuaWatch& Of(lua_State* state) noexcept;

 private:
    static constexpr std::uint64_t kStepsBetweenChecks = 4096;

    Time (*const m_now)();
    const Time m_end;
    std::uint64_t m_spent = 0;
    std::jmp_buf m_escape;
};

}  // namespace quorbel
