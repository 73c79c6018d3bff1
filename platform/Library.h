#pragma once

#include <string_view>

#include "platform/Error.h"

namespace quorbel {

/// A library of code in this process. It stays loaded until the process ends, for what it made may outlive
/// whoever loaded it. From any thread.
class CLibrary {
 public:
    /// Loads a regular file, or finds it loaded. A full path stands as it is. A bare name is sought beside
    /// the program, then in /lib and /usr/lib (in each, the folder of this processor's architecture first),
    /// then in /usr/local/lib; never in the current folder, nor where the environment says. Other names, and
    /// files that cannot be loaded, are ModuleNotFound. (What the library itself depends on is found as the
    /// system finds it.)
    static CResult<CLibrary> Load(std::wstring_view name);

    /// Where the library has this symbol; ProcNotFound when it has none.
    CResult<void*> Find(const char* symbol) const;

 private:
    explicit CLibrary(void* handle) noexcept : m_handle(handle) {}
    void* m_handle;
};

}  // namespace quorbel
