#pragma once

namespace quorbel {

/// Leaves to this process and its children, for good, the right to read and execute what is installed with
/// the system, and no other right to any file; neither may they connect to a port, or signal a process that
/// is not among them. What the kernel does not know of this (Landlock, Linux 5.13 and later) is left out,
/// but without any of it the process must be kNobody's. Needs PR_SET_NO_NEW_PRIVS. False, with errno,
/// otherwise.
bool RestrictFiles() noexcept;

}  // namespace quorbel
