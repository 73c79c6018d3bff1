#include "platform/Library.h"

#include <algorithm>
#include <dlfcn.h>
#include <filesystem>

#include "platform/LocalPath.h"
#include "platform/Precondition.h"
#include "platform/Program.h"
#include "platform/Text.h"
#include "platform/fault/LoadedCode.h"

namespace quorbel {

namespace {

constexpr const char* kSystemFolders[] = {
#if defined(__x86_64__)
    "/lib/x86_64-linux-gnu",
    "/usr/lib/x86_64-linux-gnu",
#elif defined(__aarch64__)
    "/lib/aarch64-linux-gnu",
    "/usr/lib/aarch64-linux-gnu",
#endif
    "/lib",
    "/usr/lib",
    "/usr/local/lib",
};

bool IsFile(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

/// The full path of the file that the name stands for; empty when there is none.
std::filesystem::path Locate(std::wstring_view name) {
    if (name.find(L'\0') != name.npos) return {};
    const std::filesystem::path path = ToUtf8(name);
    if (path.is_absolute()) return IsFile(path) ? path : std::filesystem::path();
    if (std::ranges::any_of(name, IsSeparator)) return {};
    const auto program = ProgramPath();
    if (program.IsOk()) {
        auto beside = program.Value().parent_path() / path;
        if (IsFile(beside)) return beside;
    }
    for (const std::filesystem::path folder : kSystemFolders) {
        if (IsFile(folder / path)) return folder / path;
    }
    return {};
}

}  // namespace

CResult<CLibrary> CLibrary::Load(std::wstring_view name) {
    const auto path = Locate(name);
    // Without a separator the loader would search by rules of its own.
    if (path.empty()) return ErrorCode::ModuleNotFound;
    void* const handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) return ErrorCode::ModuleNotFound;
    NoteLoadedCode();
    return CLibrary(handle);
}

CResult<void*> CLibrary::Find(const char* symbol) const {
    Require(symbol);
    void* const found = ::dlsym(m_handle, symbol);
    if (!found) return ErrorCode::ProcNotFound;
    return found;
}

}  // namespace quorbel
