#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>

#include "platform/Event.h"
#include "platform/com/Com.h"

namespace quorbel {

struct CSqliteOptions {
    std::chrono::milliseconds busyTimeout{5000};   ///< how long a command waits for a locked database
    std::size_t mostKeptBytes = 64 * 1024 * 1024;  ///< of the rows that a writing statement returns
};

/// What a statement does to the database, as far as preparing it shows.
enum class SqliteEffect {
    Reads,
    Sets,             ///< a PRAGMA, which some transactions do not allow
    WritesTemporary,  ///< to temporary tables only
    Writes
};

struct CFinalizeSqlite {
    void operator()(sqlite3_stmt* statement) const noexcept { ::sqlite3_finalize(statement); }
};

struct CPreparedSqlite {
    std::unique_ptr<sqlite3_stmt, CFinalizeSqlite> statement;
    SqliteEffect effect = SqliteEffect::Reads;
};

/// An open SQLite database: what is common to all use of it, waiting for locks, cancelling, refusing and
/// describing failures included. One thread at a time, Cancel from any.
class CSqliteHandle {
 public:
    /// Opens an existing file for reading and writing. E_FAIL for one that is missing or no database.
    static HRESULT Open(const std::string& path, const CSqliteOptions& options,
                        std::unique_ptr<CSqliteHandle>& handle);
    ~CSqliteHandle();
    CSqliteHandle(const CSqliteHandle&) = delete;
    CSqliteHandle& operator=(const CSqliteHandle&) = delete;

    sqlite3* Get() const noexcept { return m_database; }
    /// Prepares exactly one statement. Failures name the line, `line` being that in which it begins.
    HRESULT Prepare(const std::string& text, std::size_t line, CPreparedSqlite& prepared);
    /// S_OK with a row, DB_S_ENDOFROWSET without.
    HRESULT Step(sqlite3_stmt* statement, std::size_t line);
    /// Runs one of the statements that commands are refused (BEGIN and the like).
    HRESULT RunOwn(const char* text);
    /// The HRESULT of a failure that a call reported just now; leaves its description.
    HRESULT Failure(int code, std::size_t line);

    void Cancel() noexcept;
    /// Takes back what Cancel did.
    void Resume() noexcept;
    /// Something was done to the connection that outlasts a command.
    bool IsSpoiled() const noexcept { return m_isSpoiled; }

 private:
    CSqliteHandle(std::chrono::milliseconds busyTimeout, std::shared_ptr<CEvent> cancelEvent) noexcept
        : m_busyTimeout(busyTimeout), m_cancelEvent(std::move(cancelEvent)) {}
    HRESULT Configure();
    SqliteEffect EffectOf(sqlite3_stmt* statement) const noexcept;
    int Authorize(int action, const char* name, const char* database);
    int Refuse(const wchar_t* what);
    bool WaitWhileBusy(int tries);

    const std::chrono::milliseconds m_busyTimeout;
    const std::shared_ptr<CEvent> m_cancelEvent;  // ends a wait for a lock
    std::atomic<bool> m_isCanceled{false};
    sqlite3* m_database = nullptr;
    std::chrono::nanoseconds m_busySince{};
    bool m_isSpoiled = false;
    bool m_isOwn = false;   // the statement is one of ours
    bool m_writes = false;  // found while a statement is prepared
    bool m_writesTemporary = false;
    bool m_sets = false;
    const wchar_t* m_refused = nullptr;
};

}  // namespace quorbel
