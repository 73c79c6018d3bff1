#include "components/provider/SqliteHandle.h"

#include <algorithm>
#include <cstring>

#include "platform/Clock.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

/// Steps of the virtual machine between two looks at whether the command was cancelled: some 50 µs.
constexpr int kStepsBetweenLooks = 4000;
constexpr std::chrono::milliseconds kLongestPause{10};
/// Bytes of a text or blob; a function that makes longer ones could not be cancelled for long.
constexpr int kLongestValue = 64 << 20;

HRESULT Translate(int code) noexcept {
    switch (code & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED: return HResultFromWin32(32);
        case SQLITE_FULL: return HResultFromWin32(112);
        case SQLITE_NOMEM: return E_OUTOFMEMORY;
        case SQLITE_INTERRUPT: return DB_E_CANCELED;
        case SQLITE_PERM:
        case SQLITE_READONLY:
        case SQLITE_IOERR:
        case SQLITE_CORRUPT:
        case SQLITE_CANTOPEN:
        case SQLITE_PROTOCOL:
        case SQLITE_NOLFS:
        case SQLITE_FORMAT:
        case SQLITE_NOTADB: return E_FAIL;
        default: return DB_E_ERRORSINCOMMAND;
    }
}

/// What a connection would set for the whole process, the registry included.
bool IsOfProcess(const char* pragma) noexcept {
    constexpr const char* kNames[] = {"hard_heap_limit", "soft_heap_limit", "temp_store_directory",
                                      "data_store_directory"};
    return std::ranges::any_of(kNames, [&](const char* name) { return ::strcasecmp(name, pragma) == 0; });
}

}  // namespace

HRESULT CSqliteHandle::Open(const std::string& path, const CSqliteOptions& options,
                            std::unique_ptr<CSqliteHandle>& handle) {
    auto event = CEvent::Create(EventReset::Manual);
    if (!event.IsOk()) {
        SetErrorInfo(L"The database cannot be opened: the process has no descriptor left.");
        return E_OUTOFMEMORY;
    }
    std::unique_ptr<CSqliteHandle> opened(new CSqliteHandle(options.busyTimeout, std::move(event).Value()));
    const int result = ::sqlite3_open_v2(path.c_str(), &opened->m_database,
                                         SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (!opened->m_database) return E_OUTOFMEMORY;
    const HRESULT configured = result == SQLITE_OK ? opened->Configure() : opened->Failure(result, 0);
    if (!Succeeded(configured)) return configured;
    handle = std::move(opened);
    return S_OK;
}

CSqliteHandle::~CSqliteHandle() {
    ::sqlite3_close_v2(m_database);
}

HRESULT CSqliteHandle::Configure() {
    ::sqlite3_extended_result_codes(m_database, 1);
    ::sqlite3_db_config(m_database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    ::sqlite3_db_config(m_database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    ::sqlite3_db_config(m_database, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
    ::sqlite3_busy_handler(
        m_database,
        [](void* self, int tries) { return static_cast<CSqliteHandle*>(self)->WaitWhileBusy(tries) ? 1 : 0; },
        this);
    ::sqlite3_progress_handler(
        m_database, kStepsBetweenLooks,
        [](void* self) { return static_cast<CSqliteHandle*>(self)->m_isCanceled.load() ? 1 : 0; }, this);
    ::sqlite3_set_authorizer(
        m_database,
        [](void* self, int action, const char* name, const char*, const char* database, const char*) {
            return static_cast<CSqliteHandle*>(self)->Authorize(action, name, database);
        },
        this);
    ::sqlite3_limit(m_database, SQLITE_LIMIT_LENGTH, kLongestValue);
    // The first look at the file: whether it is a database at all.
    const HRESULT result = RunOwn("SELECT 1 FROM sqlite_schema");
    return result == DB_E_ERRORSINCOMMAND ? E_FAIL : result;
}

HRESULT CSqliteHandle::Prepare(const std::string& text, std::size_t line, CPreparedSqlite& prepared) {
    m_writes = m_writesTemporary = m_sets = false;
    m_refused = nullptr;
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    const int result = ::sqlite3_prepare_v3(m_database, text.c_str(), static_cast<int>(text.size() + 1),
                                            SQLITE_PREPARE_PERSISTENT, &statement, &tail);
    prepared.statement.reset(statement);
    if (result != SQLITE_OK) {
        const int offset = ::sqlite3_error_offset(m_database);
        if (offset > 0) {
            line += static_cast<std::size_t>(std::count(text.begin(), text.begin() + offset, '\n'));
        }
        return Failure(result, line);
    }
    if (!statement || *tail != '\0') {
        SetErrorInfo(L"The statement is not whole (line " + std::to_wstring(line) + L").");
        return DB_E_ERRORSINCOMMAND;
    }
    prepared.effect = EffectOf(statement);
    return S_OK;
}

SqliteEffect CSqliteHandle::EffectOf(sqlite3_stmt* statement) const noexcept {
    if (m_sets) return SqliteEffect::Sets;
    if (::sqlite3_stmt_readonly(statement)) return SqliteEffect::Reads;
    return m_writesTemporary && !m_writes ? SqliteEffect::WritesTemporary : SqliteEffect::Writes;
}

HRESULT CSqliteHandle::Step(sqlite3_stmt* statement, std::size_t line) {
    if (m_isCanceled) return Failure(SQLITE_INTERRUPT, line);
    const int result = ::sqlite3_step(statement);
    if (result == SQLITE_ROW) return S_OK;
    return result == SQLITE_DONE ? DB_S_ENDOFROWSET : Failure(result, line);
}

HRESULT CSqliteHandle::RunOwn(const char* text) {
    m_isOwn = true;
    const int result = ::sqlite3_exec(m_database, text, nullptr, nullptr, nullptr);
    m_isOwn = false;
    return result == SQLITE_OK ? S_OK : Failure(result, 0);
}

HRESULT CSqliteHandle::Failure(int code, std::size_t line) {
    if (m_isCanceled) code = SQLITE_INTERRUPT;
    const HRESULT result = Translate(code);
    std::wstring description;
    const wchar_t* const refused = std::exchange(m_refused, nullptr);
    if (result == DB_E_CANCELED) {
        description = L"The command was cancelled";
    } else if (refused) {
        description = refused;
    } else {
        description = FromUtf8(::sqlite3_errmsg(m_database));
    }
    if (line != 0) description += L" (line " + std::to_wstring(line) + L")";
    SetErrorInfo(std::move(description));
    return result;
}

void CSqliteHandle::Cancel() noexcept {
    m_isCanceled = true;
    m_cancelEvent->Set();
    ::sqlite3_interrupt(m_database);
}

void CSqliteHandle::Resume() noexcept {
    if (!m_isCanceled) return;
    m_isCanceled = false;
    m_cancelEvent->Clear();
}

int CSqliteHandle::Authorize(int action, const char* name, const char* database) {
    if (m_isOwn) return SQLITE_OK;
    switch (action) {
        case SQLITE_TRANSACTION:
        case SQLITE_SAVEPOINT:
            return Refuse(L"A command has one transaction, which is not its own to begin or end");
        case SQLITE_ATTACH:
        case SQLITE_DETACH: return Refuse(L"A command has one database");
        case SQLITE_CREATE_TEMP_INDEX:
        case SQLITE_CREATE_TEMP_TABLE:
        case SQLITE_CREATE_TEMP_TRIGGER:
        case SQLITE_CREATE_TEMP_VIEW: m_isSpoiled = true; break;
        case SQLITE_CREATE_VTABLE:
            if (database && std::strcmp(database, "temp") == 0) m_isSpoiled = true;
            break;
        case SQLITE_PRAGMA:
            if (IsOfProcess(name)) return Refuse(L"This PRAGMA is the service's to set");
            m_isSpoiled = m_sets = true;
            break;
        case SQLITE_INSERT:
        case SQLITE_UPDATE:
        case SQLITE_DELETE:
            (database && std::strcmp(database, "temp") == 0 ? m_writesTemporary : m_writes) = true;
            break;
        default: break;
    }
    return SQLITE_OK;
}

int CSqliteHandle::Refuse(const wchar_t* what) {
    m_refused = what;
    return SQLITE_DENY;
}

bool CSqliteHandle::WaitWhileBusy(int tries) {
    const std::chrono::nanoseconds now = SystemClock().Steady();
    if (tries == 0) m_busySince = now;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_busySince + m_busyTimeout - now);
    if (m_isCanceled || left.count() <= 0) return false;
    const auto pause = std::min({left, kLongestPause, std::chrono::milliseconds(1 + tries)});
    return WaitForAny({m_cancelEvent.get()}, pause).Error() == ErrorCode::WaitTimeout;
}

}  // namespace quorbel
