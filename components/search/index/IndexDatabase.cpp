#include "components/search/index/IndexDatabase.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unicode/uversion.h>
#include <unistd.h>

#include "components/search/index/DocumentId.h"
#include "components/search/index/Fts5.h"
#include "platform/FileDescriptor.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr const char* kFileName = "/index.db";
/// Counts up whenever tables, words or what is read of files change.
constexpr std::int64_t kLayout = 1;

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

bool AddFunctions(sqlite3* connection, const std::function<bool()>& mustEnd) {
    fts5_api* const fts5 = Fts5Of(connection);
    return fts5 && RegisterWordTokenizer(*fts5) == SQLITE_OK &&
           RegisterRelevance(*fts5, mustEnd) == SQLITE_OK && RegisterExcerpt(connection) == SQLITE_OK &&
           RegisterFolders(connection) == SQLITE_OK &&
           ::sqlite3_create_collation_v2(connection, "FOLDED", SQLITE_UTF8, nullptr, CompareFolded,
                                         nullptr) == SQLITE_OK;
}

/// An index of another version is made anew: so is one whose words were broken by other rules.
std::int64_t Version() {
    UVersionInfo rules;
    ::u_getVersion(rules);
    return kLayout * 1000 + rules[0];
}

}  // namespace

struct CIndexDatabase::CConnection {
    MustEnd mustEnd;
    std::unique_ptr<CDatabase> database;
};

CResult<CIndexDatabase::CConnection> CIndexDatabase::Connect(const std::string& file, Access access) {
    CDatabaseOptions options;
    options.isReadOnly = access == Access::Read;
    options.survivesPowerFailure = false;  // what is lost is found anew
    options.errors = {ErrorCode::InvalidData, ErrorCode::FileNotFound, ErrorCode::IoDevice};
    auto database = CDatabase::Open(file, options);
    if (!database.IsOk()) return database.Error();
    CConnection connection{std::make_unique<std::function<bool()>>([] { return false; }),
                           std::move(database).Value()};
    if (!AddFunctions(connection.database->Handle(), *connection.mustEnd)) return ErrorCode::NotEnoughMemory;
    const ErrorCode error = connection.database->Execute("PRAGMA cache_size=-8192");
    if (error != ErrorCode::Success) return error;
    return connection;
}

/// The connection, if it is to an index of ours.
CResult<CIndexDatabase::CConnection> CIndexDatabase::ConnectToIndex(const std::string& file, Access access) {
    auto connection = Connect(file, access);
    if (!connection.IsOk()) return connection;
    CDatabase& database = *connection.Value().database;
    const auto version = database.Number("PRAGMA user_version");
    if (!version.IsOk()) return version.Error();
    if (version.Value() != Version()) return ErrorCode::InvalidData;
    const auto facts = database.Number("SELECT count(*) FROM facts");
    if (!facts.IsOk()) return facts.Error();
    return connection;
}

ErrorCode CIndexDatabase::Remove(const std::string& folder) {
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
        if (::unlink((FileIn(folder) + suffix).c_str()) != 0 && errno != ENOENT) return ErrorFromErrno(errno);
    }
    return ErrorCode::Success;
}

CResult<CIndexDatabase::CConnection> CIndexDatabase::Make(const std::string& folder) {
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) return ErrorFromErrno(errno);
    const std::string file = FileIn(folder);
    // It holds the texts of all documents: for the eyes of its owner.
    const CFileDescriptor made(::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!made.IsOpen()) return ErrorFromErrno(errno);
    auto connection = Connect(file, Access::Write);
    if (!connection.IsOk()) return connection;
    CDatabase& index = *connection.Value().database;
    ErrorCode error = index.Execute("PRAGMA journal_mode=WAL");
    if (error == ErrorCode::Success) error = index.Execute("BEGIN IMMEDIATE");
    if (error == ErrorCode::Success) error = index.Execute(kSchema);
    if (error == ErrorCode::Success) {
        error = index.Execute(("PRAGMA user_version=" + std::to_string(Version())).c_str());
    }
    if (error == ErrorCode::Success) error = index.Execute("COMMIT");
    if (error != ErrorCode::Success) return error;
    return connection;
}

std::string CIndexDatabase::FileIn(const std::string& folder) {
    return folder + kFileName;
}

CResult<std::unique_ptr<CIndexDatabase>> CIndexDatabase::Open(const std::string& folder, Access access) {
    auto connection = ConnectToIndex(FileIn(folder), access);
    const bool isUnusable =
        connection.Error() == ErrorCode::FileNotFound || connection.Error() == ErrorCode::InvalidData;
    if (isUnusable && access == Access::Write) {
        if (const ErrorCode error = Remove(folder); error != ErrorCode::Success) return error;
        connection = Make(folder);
    }
    if (!connection.IsOk()) return connection.Error();
    CConnection& opened = connection.Value();
    if (access == Access::Write) {
        // After a burst of writing the log is cut down again.
        Ignore(opened.database->Execute("PRAGMA journal_size_limit=16777216"));
    }
    return std::unique_ptr<CIndexDatabase>(
        new CIndexDatabase(std::move(opened.mustEnd), std::move(opened.database)));
}

}  // namespace quorbel
