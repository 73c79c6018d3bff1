#pragma once

#include "platform/fault/FaultRecord.h"
#include "platform/fault/FixedText.h"

namespace quorbel {

/// With its final zero.
using CFaultText = CFixedText<1024>;

enum class FaultTextForm {
    Exception,  ///< parameters as their lower 32 bits, frames as 16 digits, no line end at the end
    LastWords   ///< parameters whole, frames without leading zeros, a line end after each
};

/// The text of a fault: its code, address and parameters; the instruction pointer; up to ten frames, each
/// with its return address, as the chain of frame pointers in the memory of this process gives them. Never
/// faults by itself, neither allocates nor locks.
CFaultText DescribeFault(const CFaultRecord& fault, FaultTextForm form) noexcept;

}  // namespace quorbel
