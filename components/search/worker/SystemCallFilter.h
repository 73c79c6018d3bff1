#pragma once

namespace quorbel {

/// Leaves to this process and its children, for good, the system calls that reading a document from open
/// files and running a program for it needs; all others answer as if the kernel did not have them. Files can
/// be opened for reading only. False, with errno, when that cannot be set up.
bool FilterSystemCalls() noexcept;

}  // namespace quorbel
