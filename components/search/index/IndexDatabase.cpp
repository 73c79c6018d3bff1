#include "components/search/index/IndexDatabase.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "components/search/index/DocumentId.h"
#include "components/search/index/Fts5.h"
#include "platform/FileDescriptor.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr const char* kFileName = "/index.db";
/// Counts up whenever tables, words or what is read of files change: an older index is made anew.
constexpr std::int64_t kVersion = 1;

constexpr const char* kSchema = R"(
    CREATE TABLE facts(name TEXT PRIMARY KEY, value) WITHOUT ROWID;
    CREATE TABLE folders(id INTEGER PRIMARY KEY AUTOINCREMENT, path TEXT NOT NULL UNIQUE,
                         next INTEGER NOT NULL DEFAULT 0);
    CREATE TABLE documents(id INTEGER PRIMARY KEY, folder INTEGER NOT NULL, name TEXT NOT NULL,
                           extension TEXT NOT NULL, kind TEXT NOT NULL, size INTEGER NOT NULL,
                           modified INTEGER NOT NULL, changed INTEGER NOT NULL, inode INTEGER NOT NULL,
                           title TEXT, author TEXT, problem TEXT, pending INTEGER NOT NULL,
                           UNIQUE(folder, name));
    CREATE INDEX pending_documents ON documents(pending) WHERE pending;
    CREATE TABLE texts(id INTEGER PRIMARY KEY, text TEXT NOT NULL);
    CREATE VIRTUAL TABLE words USING fts5(content, title, author, name, content='', columnsize=0,
                                          tokenize='archive');
    CREATE TABLE skipped(folder INTEGER NOT NULL, name BLOB NOT NULL, size INTEGER NOT NULL,
                         modified INTEGER NOT NULL, changed INTEGER NOT NULL, inode INTEGER NOT NULL,
                         reason TEXT NOT NULL, PRIMARY KEY(folder, name)) WITHOUT ROWID;
)";

int CompareFolded(void*, int leftSize, const void* left, int rightSize, const void* right) {
    const auto view = [](const void* text, int size) {
        return FromUtf8({static_cast<const char*>(text), static_cast<std::size_t>(size)});
    };
    return CompareNoCase(view(left, leftSize), view(right, rightSize));
}

void FolderOf(sqlite3_context* context, int, sqlite3_value** arguments) {
    ::sqlite3_result_int64(context, CDocumentId::FolderOf(::sqlite3_value_int64(arguments[0])));
}

fts5_api* Fts5Of(sqlite3* connection) {
    fts5_api* fts5 = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (::sqlite3_prepare_v2(connection, "SELECT fts5(?)", -1, &statement, nullptr) != SQLITE_OK)
        return nullptr;
    ::sqlite3_bind_pointer(statement, 1, &fts5, "fts5_api_ptr", nullptr);
    ::sqlite3_step(statement);
    ::sqlite3_finalize(statement);
    return fts5;
}

bool AddFunctions(sqlite3* connection) {
    fts5_api* const fts5 = Fts5Of(connection);
    constexpr int kPure = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    return fts5 && RegisterWordTokenizer(*fts5) == SQLITE_OK && RegisterRelevance(*fts5) == SQLITE_OK &&
           RegisterExcerpt(connection) == SQLITE_OK &&
           ::sqlite3_create_collation_v2(connection, "FOLDED", SQLITE_UTF8, nullptr, CompareFolded,
                                         nullptr) == SQLITE_OK &&
           ::sqlite3_create_function_v2(connection, "folder_of", 1, kPure, nullptr, FolderOf, nullptr,
                                        nullptr, nullptr) == SQLITE_OK;
}

CResult<std::unique_ptr<CDatabase>> Connect(const std::string& file, CIndexDatabase::Access access) {
    CDatabaseOptions options;
    options.isReadOnly = access == CIndexDatabase::Access::Read;
    options.survivesPowerFailure = false;  // what is lost is found anew
    options.errors = {ErrorCode::InvalidData, ErrorCode::FileNotFound, ErrorCode::IoDevice};
    auto database = CDatabase::Open(file, options);
    if (!database.IsOk()) return database.Error();
    if (!AddFunctions(database.Value()->Handle())) return ErrorCode::NotEnoughMemory;
    return database;
}

/// The connection, if it is to an index of ours.
CResult<std::unique_ptr<CDatabase>> ConnectToIndex(const std::string& file, CIndexDatabase::Access access) {
    auto database = Connect(file, access);
    if (!database.IsOk()) return database;
    const auto version = database.Value()->Number("PRAGMA user_version");
    if (!version.IsOk()) return version.Error();
    if (version.Value() != kVersion) return ErrorCode::InvalidData;
    const auto facts = database.Value()->Number("SELECT count(*) FROM facts");
    if (!facts.IsOk()) return facts.Error();
    return database;
}

ErrorCode RemoveIndex(const std::string& file) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
        if (::unlink((file + suffix).c_str()) != 0 && errno != ENOENT) return ErrorFromErrno(errno);
    }
    return ErrorCode::Success;
}

CResult<std::unique_ptr<CDatabase>> MakeIndex(const std::string& folder, const std::string& file) {
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) return ErrorFromErrno(errno);
    // It holds the texts of all documents: for the eyes of its owner.
    const CFileDescriptor made(::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!made.IsOpen()) return ErrorFromErrno(errno);
    auto database = Connect(file, CIndexDatabase::Access::Write);
    if (!database.IsOk()) return database;
    CDatabase& index = *database.Value();
    ErrorCode error = index.Execute("PRAGMA journal_mode=WAL");
    if (error == ErrorCode::Success) error = index.Execute("BEGIN IMMEDIATE");
    if (error == ErrorCode::Success) error = index.Execute(kSchema);
    if (error == ErrorCode::Success) {
        error = index.Execute(("PRAGMA user_version=" + std::to_string(kVersion)).c_str());
    }
    if (error == ErrorCode::Success) error = index.Execute("COMMIT");
    if (error != ErrorCode::Success) return error;
    return database;
}

}  // namespace

std::string CIndexDatabase::FileIn(const std::string& folder) {
    return folder + kFileName;
}

CResult<std::unique_ptr<CIndexDatabase>> CIndexDatabase::Open(const std::string& folder, Access access) {
    const std::string file = FileIn(folder);
    auto database = ConnectToIndex(file, access);
    const bool isUnusable =
        database.Error() == ErrorCode::FileNotFound || database.Error() == ErrorCode::InvalidData;
    if (isUnusable && access == Access::Write) {
        if (const ErrorCode error = RemoveIndex(file); error != ErrorCode::Success) return error;
        database = MakeIndex(folder, file);
    }
    if (!database.IsOk()) return database.Error();
    if (access == Access::Write) {
        // After a burst of writing the log is cut down again.
        Ignore(database.Value()->Execute("PRAGMA journal_size_limit=16777216"));
    }
    return std::unique_ptr<CIndexDatabase>(new CIndexDatabase(std::move(database).Value()));
}

}  // namespace quorbel
