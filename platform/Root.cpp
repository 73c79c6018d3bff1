#include "platform/Root.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/registry/SqliteRegistry.h"

namespace quorbel {

namespace {

constexpr mode_t kPassable = 0711;
constexpr mode_t kPrivate = 0700;

/// The variable's value; empty when it is not set.
std::filesystem::path FromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::filesystem::path RootPath() {
    if (auto path = FromEnvironment("QUORBEL_ROOT"); !path.empty()) return path;
    if (::geteuid() == 0) return "/var/lib/quorbel";
    // A relative state folder is to be ignored.
    if (auto state = FromEnvironment("XDG_STATE_HOME"); state.is_absolute()) return state / "quorbel";
    const auto home = FromEnvironment("HOME");
    return home.empty() ? home : home / ".local/state/quorbel";
}

/// A folder that exists keeps the mode that it was given.
ErrorCode EnsureFolder(const std::filesystem::path& folder, mode_t mode) {
    if (::mkdir(folder.c_str(), kPrivate) != 0) {
        if (errno != EEXIST) return ErrorFromErrno(errno);
        std::error_code ignored;
        return std::filesystem::is_directory(folder, ignored) ? ErrorCode::Success : ErrorCode::Directory;
    }
    return ::chmod(folder.c_str(), mode) == 0 ? ErrorCode::Success : ErrorFromErrno(errno);
}

/// AccessDenied for a folder that others than the superuser and ourselves own or may write to.
ErrorCode CheckIsOurs(const std::filesystem::path& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) return ErrorFromErrno(errno);
    const bool owned = status.st_uid == 0 || status.st_uid == ::geteuid();
    return owned && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 ? ErrorCode::Success
                                                                : ErrorCode::AccessDenied;
}

/// A folder under the root folder, created when it is missing; by default for nobody else.
CResult<std::filesystem::path> OpenFolderUnderRoot(const char* name, mode_t mode = kPrivate) {
    const CResult<std::filesystem::path> root = OpenRootFolder();
    if (!root.IsOk()) return root.Error();
    const std::filesystem::path folder = root.Value() / name;
    const ErrorCode error = EnsureFolder(folder, mode);
    if (error != ErrorCode::Success) return error;
    return folder;
}

/// The same; AccessDenied when it is not ours alone.
CResult<std::filesystem::path> OpenOwnFolder(const char* name) {
    const CResult<std::filesystem::path> folder = OpenFolderUnderRoot(name);
    if (!folder.IsOk()) return folder.Error();
    const ErrorCode error = CheckIsOurs(folder.Value());
    if (error != ErrorCode::Success) return error;
    return folder.Value();
}

}  // namespace

CResult<std::filesystem::path> OpenRootFolder() {
    std::filesystem::path path = RootPath().lexically_normal();
    if (!path.has_filename()) path = path.parent_path();
    if (path.empty()) return ErrorCode::PathNotFound;
    if (!path.is_absolute()) return ErrorCode::BadPathname;
    std::error_code failure;
    std::filesystem::create_directories(path.parent_path(), failure);
    if (failure) return ErrorFromErrno(failure.value());
    const ErrorCode error = EnsureFolder(path, kPassable);
    if (error != ErrorCode::Success) return error;
    return path;
}

CResult<std::filesystem::path> OpenCertificatesFolder() {
    return OpenFolderUnderRoot("certificates");
}

CResult<std::filesystem::path> OpenPipesFolder() {
    return OpenFolderUnderRoot("pipe", kPassable);
}

CResult<std::filesystem::path> OpenKeysFolder() {
    return OpenOwnFolder("keys");
}

CResult<std::shared_ptr<IRegistry>> OpenRootRegistry() {
    const CResult<std::filesystem::path> folder = OpenOwnFolder("registry");
    if (!folder.IsOk()) return folder.Error();
    return OpenSqliteRegistry(folder.Value());
}

}  // namespace quorbel
