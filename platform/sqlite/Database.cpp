#include "platform/sqlite/Database.h"

#include <cerrno>

#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::uint64_t kPageSize = 4096;

/// True when a write has failed for a limit of the process or a quota of its user, which SQLite, unlike a
/// device without space, reports like any other failed write. In WAL mode all writes of a transaction go to
/// the log.
bool IsAtLimit(sqlite3* connection) noexcept {
    if (::sqlite3_extended_errcode(connection) != SQLITE_IOERR_WRITE) return false;
    sqlite3_file* log = nullptr;
    ::sqlite3_file_control(connection, nullptr, SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (!log || !log->pMethods) return false;
    int error = 0;
    log->pMethods->xFileControl(log, SQLITE_FCNTL_LAST_ERRNO, &error);
    return error == EFBIG || error == EDQUOT;
}

/// The one place where SQLite's results become error numbers.
ErrorCode Translate(int result, sqlite3* connection, const CDatabaseErrors& errors) noexcept {
    const int systemError = connection ? ::sqlite3_system_errno(connection) : 0;
    switch (result & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE: return ErrorCode::Success;
        case SQLITE_FULL: return ErrorCode::DiskFull;
        case SQLITE_BUSY:
        case SQLITE_LOCKED: return ErrorCode::Busy;
        case SQLITE_NOTADB:
        case SQLITE_FORMAT:
        case SQLITE_CORRUPT: return errors.damaged;
        case SQLITE_READONLY:
        case SQLITE_AUTH:
        case SQLITE_PERM: return ErrorCode::AccessDenied;
        case SQLITE_NOMEM: return ErrorCode::NotEnoughMemory;
        case SQLITE_TOOBIG: return ErrorCode::FileTooLarge;
        case SQLITE_CANTOPEN:
            if (systemError == EACCES || systemError == EPERM) return ErrorCode::AccessDenied;
            return errors.cannotOpen;
        case SQLITE_IOERR:
            if (connection && IsAtLimit(connection)) return ErrorCode::DiskFull;
            return errors.io;
        // A table that is missing or of another shape: the file is another one, or is damaged.
        case SQLITE_ERROR:
        case SQLITE_SCHEMA:
        case SQLITE_CONSTRAINT:
        case SQLITE_MISMATCH: return errors.damaged;
        default: return errors.io;
    }
}

}  // namespace

CStatement::~CStatement() {
    // Repeats the result of the last step, which has been reported.
    if (m_statement) Ignore(::sqlite3_reset(m_statement));
}

void CStatement::Bind(std::int64_t number) {
    ++m_bound;
    if (m_result == SQLITE_OK) m_result = ::sqlite3_bind_int64(m_statement, m_bound, number);
}

void CStatement::Bind(std::string_view text) {
    ++m_bound;
    if (m_result != SQLITE_OK) return;
    m_result =
        ::sqlite3_bind_text64(m_statement, m_bound, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void CStatement::Bind(CBlob blob) {
    ++m_bound;
    if (m_result != SQLITE_OK) return;
    // A null pointer would store NULL.
    const char* data = blob.bytes.empty() ? "" : blob.bytes.data();
    m_result = ::sqlite3_bind_blob64(m_statement, m_bound, data, blob.bytes.size(), SQLITE_TRANSIENT);
}

CResult<bool> CStatement::Step() {
    if (m_result == SQLITE_OK || m_result == SQLITE_ROW) m_result = ::sqlite3_step(m_statement);
    if (m_result == SQLITE_ROW) return true;
    if (m_result == SQLITE_DONE) return false;
    const ErrorCode error = Translate(m_result, m_connection, m_errors);
    if (m_failure == ErrorCode::Success) m_failure = error;
    return error;
}

ErrorCode CStatement::Run() {
    return Step().Error();
}

std::int64_t CStatement::Integer(int column) const {
    return ::sqlite3_column_int64(m_statement, column);
}

std::string_view CStatement::Bytes(int column) const {
    const void* data = ::sqlite3_column_blob(m_statement, column);
    const int size = ::sqlite3_column_bytes(m_statement, column);
    return data ? std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size))
                : std::string_view();
}

std::wstring CStatement::Text(int column) const {
    return FromUtf8(Bytes(column));
}

CResult<std::unique_ptr<CDatabase>> CDatabase::Open(const std::filesystem::path& file,
                                                    const CDatabaseOptions& options) {
    sqlite3* opened = nullptr;
    const int access = options.isReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    const int result = ::sqlite3_open_v2(file.c_str(), &opened, access | SQLITE_OPEN_NOMUTEX, nullptr);
    Connection connection(opened);
    if (result != SQLITE_OK) return Translate(result, opened, options.errors);
    ::sqlite3_busy_timeout(opened, static_cast<int>(options.busyTimeout.count()));
    std::unique_ptr<CDatabase> database(new CDatabase(std::move(connection), options.errors));
    ErrorCode error = database->Execute(options.survivesPowerFailure ? "PRAGMA synchronous=FULL"
                                                                     : "PRAGMA synchronous=NORMAL");
    if (error == ErrorCode::Success) error = database->Execute("PRAGMA cell_size_check=ON");
    if (error == ErrorCode::Success && options.maximumBytes != 0) {
        const std::string pages = std::to_string(options.maximumBytes / kPageSize);
        error = database->Execute(("PRAGMA max_page_count=" + pages).c_str());
    }
    if (error != ErrorCode::Success) return error;
    return database;
}

std::pair<sqlite3_stmt*, int> CDatabase::Prepare(std::string_view sql) {
    const auto found = m_statements.find(sql);
    if (found != m_statements.end()) return {found->second.get(), SQLITE_OK};
    sqlite3_stmt* statement = nullptr;
    const int result = ::sqlite3_prepare_v3(m_connection.get(), sql.data(), static_cast<int>(sql.size()),
                                            SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    std::unique_ptr<sqlite3_stmt, CFinalize> prepared(statement);
    if (result == SQLITE_OK) m_statements.emplace(sql, std::move(prepared));
    return {statement, result};
}

ErrorCode CDatabase::Execute(const char* sql) {
    return Translate(::sqlite3_exec(m_connection.get(), sql, nullptr, nullptr, nullptr), m_connection.get(),
                     m_errors);
}

ErrorCode CDatabase::Begin() {
    const ErrorCode error = Use("BEGIN IMMEDIATE").Run();
    m_failure = ErrorCode::Success;
    return error;
}

ErrorCode CDatabase::BeginRead() {
    const ErrorCode error = Use("BEGIN").Run();
    m_failure = ErrorCode::Success;
    return error;
}

ErrorCode CDatabase::Commit() {
    ErrorCode error = m_failure;
    if (error == ErrorCode::Success) error = Use("COMMIT").Run();
    if (error != ErrorCode::Success) Rollback();
    return error;
}

void CDatabase::Rollback() noexcept {
    // After some failures SQLite has rolled back on its own.
    if (::sqlite3_get_autocommit(m_connection.get()) == 0) Ignore(Execute("ROLLBACK"));
}

}  // namespace quorbel
