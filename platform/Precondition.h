#pragma once

namespace quorbel {

/// A caller broke the contract of the function that calls this: a crash report is written and an exception
/// thrown (see platform/fault/Faults.h). Where nobody handles faults the process is aborted.
[[noreturn]] void InvalidParameter();

/// What InvalidParameter does before it would abort the process; it throws or ends the process itself.
void SetInvalidParameterTrap(void (*trap)()) noexcept;

/// A condition that every caller has to see to, whatever the input.
inline void Require(bool holds) {
    if (!holds) [[unlikely]]
        InvalidParameter();
}

}  // namespace quorbel
