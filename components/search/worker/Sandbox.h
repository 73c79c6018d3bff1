#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace quorbel {

/// The user that owns nothing.
inline constexpr unsigned kNobody = 65534;

/// Takes from this process and all of its later children, for good, whatever reading a document does not
/// need. Afterwards: the user nobody when it was root and may change its user; no new privileges; at most
/// `memoryLimit` bytes of address space each; no file written or made; no socket opened; no other process
/// stopped, watched or changed; of all files only programs and libraries and what belongs to them can be
/// opened (the last as far as the kernel has Landlock). Everything else that the kernel offers seems not to
/// be there. The process ends with its parent.
///
/// Empty when all of it is in force, else why not: the process must then read nothing. Only for a process
/// with a single thread.
std::string EnterSandbox(std::size_t memoryLimit);

/// Bounds the processor time of this process and of each of its later children.
void LimitProcessorTime(std::chrono::seconds most) noexcept;

}  // namespace quorbel
