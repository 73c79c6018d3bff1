#pragma once

#include <cstdint>

namespace quorbel {

/// Whose code an address belongs to.
enum class CodeOwner {
    Own,      ///< the program, or a module beside it: compiled so that a fault can leave any instruction
    Runtime,  ///< a C++ library, through which exceptions pass
    Foreign   ///< anything else: an exception would leave it in an unknown state
};

/// Looks at what the process has loaded. Once at set-up, and again after a module was loaded.
void NoteLoadedCode();

/// By what was loaded when it was last looked at; safe in a signal handler.
CodeOwner OwnerOfCode(std::uintptr_t address) noexcept;

}  // namespace quorbel
