#include "platform/Program.h"

#include <unistd.h>

#include "platform/Error.h"

namespace quorbel {

CResult<std::filesystem::path> ProgramPath() {
    std::error_code error;
    std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return ErrorFromErrno(error.value());
    // A program replaced while it runs: its folder, and the modules in it, are still the same.
    constexpr std::string_view kDeleted = " (deleted)";
    std::string text = path.string();
    if (text.ends_with(kDeleted) && !std::filesystem::exists(path, error)) {
        text.resize(text.size() - kDeleted.size());
        path = text;
    }
    return path;
}

std::uint32_t CurrentProcessId() noexcept {
    return static_cast<std::uint32_t>(::getpid());
}

}  // namespace quorbel
