#pragma once

#include <string>

namespace quorbel {

/// What a component says of the failure that it returns to its caller, for the operator's eyes: kept for the
/// calling thread until it is taken or replaced. Never shown to clients.
/// @{
void SetErrorInfo(std::wstring description) noexcept;
/// Empty when there is none.
std::wstring TakeErrorInfo() noexcept;
/// @}

}  // namespace quorbel
