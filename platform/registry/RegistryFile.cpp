#include "platform/registry/RegistryFile.h"

#include <cerrno>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "platform/FileDescriptor.h"

namespace quorbel {

namespace {

constexpr std::int64_t kApplicationId = 0x51425247;
constexpr std::int64_t kVersion = 1;

constexpr const char* kSchema = R"(
PRAGMA journal_mode=WAL;
BEGIN;
PRAGMA application_id=0x51425247;
PRAGMA user_version=1;
CREATE TABLE keys(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER NOT NULL,
    folded TEXT NOT NULL,
    name TEXT NOT NULL,
    UNIQUE(parent, folded));
CREATE TABLE entries(
    key INTEGER NOT NULL,
    folded TEXT NOT NULL,
    name TEXT NOT NULL,
    type INTEGER NOT NULL,
    data BLOB NOT NULL,
    UNIQUE(key, folded));
CREATE TABLE journal(
    sequence INTEGER PRIMARY KEY AUTOINCREMENT,
    kind INTEGER NOT NULL,
    keys BLOB NOT NULL);
INSERT INTO keys(id, parent, folded, name) VALUES(1, 0, '', '');
COMMIT;
)";

/// Writes an empty registry to a file that nobody else knows yet.
ErrorCode Initialize(const std::filesystem::path& file) {
    CResult<std::unique_ptr<CDatabase>> database = CDatabase::Open(file, {});
    if (!database.IsOk()) return database.Error();
    return database.Value()->Execute(kSchema);
}

}  // namespace

ErrorCode EnsureRegistryFile(const std::filesystem::path& file) {
    if (::access(file.c_str(), F_OK) == 0) return ErrorCode::Success;
    std::string draft = file.string() + ".XXXXXX";
    {
        const CFileDescriptor descriptor(::mkostemp(draft.data(), O_CLOEXEC));
        if (!descriptor.IsOpen()) return ErrorFromErrno(errno);
        // The process's mask may have taken away even the owner's access.
        if (::fchmod(descriptor.Get(), S_IRUSR | S_IWUSR) != 0) return ErrorFromErrno(errno);
    }
    ErrorCode error = Initialize(draft);
    // A link never replaces a registry that another process has created meanwhile.
    if (error == ErrorCode::Success && ::link(draft.c_str(), file.c_str()) != 0 && errno != EEXIST) {
        error = ErrorFromErrno(errno);
    }
    ::unlink(draft.c_str());
    return error;
}

CResult<std::unique_ptr<CDatabase>> ConnectRegistryFile(const std::filesystem::path& file,
                                                        const CDatabaseOptions& options) {
    CResult<std::unique_ptr<CDatabase>> database = CDatabase::Open(file, options);
    if (!database.IsOk()) return database;
    const CResult<std::int64_t> application = database.Value()->Number("PRAGMA application_id");
    if (!application.IsOk()) return application.Error();
    if (application.Value() != kApplicationId) return ErrorCode::RegistryCorrupt;
    const CResult<std::int64_t> version = database.Value()->Number("PRAGMA user_version");
    if (!version.IsOk()) return version.Error();
    if (version.Value() > kVersion) return ErrorCode::NotSupported;
    return database;
}

}  // namespace quorbel
