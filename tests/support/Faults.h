#pragma once

namespace quorbel {

// Instructions that fault, whatever the optimiser and the sanitizers think of them, each in a function of its
// own.

void WriteToNull();
void ReadFromWild();  ///< an address that is none
void CallNull();
void DivideByZero();
void Trap();
void RunIntoBreakpoint();
void OverflowStack();

}  // namespace quorbel
