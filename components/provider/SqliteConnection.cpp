#include "components/provider/SqliteConnection.h"

#include <algorithm>
#include <new>

#include "components/provider/SqliteKeptRows.h"
#include "components/provider/SqliteRows.h"
#include "components/provider/SqliteValues.h"
#include "platform/Error.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

constexpr std::size_t kMostStatements = 64;
constexpr std::size_t kMostTextBytes = 64 * 1024;

/// What a statement that cannot be prepared yet, since it needs what one before it makes, may do.
bool MayWrite(const std::string& text) noexcept {
    constexpr std::string_view kSelect = "SELECT";
    return !std::ranges::equal(std::string_view(text).substr(0, kSelect.size()), kSelect,
                               [](char left, char right) { return (left & ~0x20) == right; });
}

/// Ends a statement's run on every way out, unless somebody else goes on with it.
class CRun {
 public:
    explicit CRun(std::shared_ptr<CSqliteStatement> statement) noexcept : m_statement(std::move(statement)) {}
    ~CRun() {
        if (m_statement) m_statement->Reset();
    }
    CRun(const CRun&) = delete;
    CRun& operator=(const CRun&) = delete;
    std::shared_ptr<CSqliteStatement> Detach() noexcept { return std::exchange(m_statement, nullptr); }

 private:
    std::shared_ptr<CSqliteStatement> m_statement;
};

}  // namespace

HRESULT CSqliteConnection::Open(const std::string& path, const CSqliteOptions& options,
                                std::unique_ptr<ISqlConnection>& connection) {
    std::unique_ptr<CSqliteConnection> opened(new CSqliteConnection);
    const HRESULT result = CSqliteHandle::Open(path, options, opened->m_handle);
    if (!Succeeded(result)) return result;
    const int registered = opened->m_functions.Register(opened->m_handle->Get());
    if (registered != SQLITE_OK) return opened->m_handle->Failure(registered, 0);
    opened->m_mostKeptBytes = options.mostKeptBytes;
    connection = std::move(opened);
    return S_OK;
}

HRESULT CSqliteConnection::Execute(const CSqlCommand& command, std::span<const CSqlArgument> arguments,
                                   ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows) {
    if (command.statements.empty()) {
        SetErrorInfo(L"The command has no statement.");
        return DB_E_ERRORSINCOMMAND;
    }
    m_functions.Use(&functions);
    const CSqlArguments byName(arguments);
    std::vector<Statement> statements(command.statements.size());
    Transaction transaction = Transaction::None;
    const HRESULT result = Plan(command, statements, transaction);
    if (!Succeeded(result)) return result;
    if (transaction == Transaction::None) return RunAll(command, statements, byName, rows);
    return RunInTransaction(transaction, command, statements, byName, rows);
}

HRESULT CSqliteConnection::Plan(const CSqlCommand& command, std::vector<Statement>& statements,
                                Transaction& transaction) {
    // A transaction that begins with reading cannot always go on to write.
    bool writes = false;
    bool needsNone = statements.size() == 1;
    for (std::size_t index = 0; index != statements.size(); ++index) {
        Statement& statement = statements[index];
        const HRESULT result = Prepare(command.statements[index], statement);
        if (!Succeeded(result) && index == 0) return result;
        // Whether a later one is broken or only too early shows when its turn comes.
        if (!Succeeded(result)) Ignore(TakeErrorInfo());
        const bool mayWrite = statement ? statement->Effect() == SqliteEffect::Writes
                                        : MayWrite(command.statements[index].numbered);
        writes = writes || mayWrite;
        needsNone = needsNone && !mayWrite && statement->Effect() != SqliteEffect::WritesTemporary;
    }
    transaction = needsNone ? Transaction::None : writes ? Transaction::Writing : Transaction::Reading;
    return S_OK;
}

HRESULT CSqliteConnection::Prepare(const CSqlStatement& source, Statement& statement) {
    const std::string& text = source.numbered;
    const auto found = m_statements.find(text);
    if (found != m_statements.end()) {
        found->second.lastUse = ++m_uses;
        statement = found->second.statement;
        return S_OK;
    }
    CPreparedSqlite prepared;
    const HRESULT result = m_handle->Prepare(text, source.line, prepared);
    if (!Succeeded(result)) return result;
    statement = std::make_shared<CSqliteStatement>(*m_handle, std::move(prepared));
    if (text.size() <= kMostTextBytes) Keep(text, statement);
    return S_OK;
}

void CSqliteConnection::Keep(const std::string& text, Statement statement) {
    if (m_statements.size() >= kMostStatements) {
        m_statements.erase(std::ranges::min_element(m_statements, {},
                                                    [](const auto& entry) { return entry.second.lastUse; }));
    }
    m_statements.emplace(text, CKept{std::move(statement), ++m_uses});
}

HRESULT CSqliteConnection::RunAll(const CSqlCommand& command, const std::vector<Statement>& statements,
                                  const CSqlArguments& arguments, std::unique_ptr<ISqlRows>& rows) {
    for (std::size_t index = 0; index != statements.size(); ++index) {
        const CSqlStatement& source = command.statements[index];
        Statement statement = statements[index];
        HRESULT result = statement ? S_OK : Prepare(source, statement);
        if (!Succeeded(result)) return result;
        CRun run(statement);
        result = statement->Bind(source.names, arguments, source.line);
        if (!Succeeded(result)) return result;
        const bool isLast = index + 1 == statements.size();
        if (isLast && statement->Effect() == SqliteEffect::Reads) {
            return CSqliteRows::Open(run.Detach(), m_functions, rows);
        }
        result = isLast ? KeepRows(*statement, rows) : RunToEnd(*statement);
        if (!Succeeded(result)) return result;
    }
    return S_OK;
}

HRESULT CSqliteConnection::RunInTransaction(Transaction transaction, const CSqlCommand& command,
                                            const std::vector<Statement>& statements,
                                            const CSqlArguments& arguments, std::unique_ptr<ISqlRows>& rows) {
    HRESULT result = m_handle->RunOwn(transaction == Transaction::Writing ? "BEGIN IMMEDIATE" : "BEGIN");
    if (!Succeeded(result)) return result;
    result = RunAll(command, statements, arguments, rows);
    // Rows that are read go on being read: what the transaction wrote is then on disk and no lock is held.
    if (Succeeded(result)) result = m_handle->RunOwn("COMMIT");
    if (Succeeded(result)) return result;
    rows.reset();
    Rollback();
    return result;
}

HRESULT CSqliteConnection::RunToEnd(CSqliteStatement& statement) {
    for (;;) {
        const HRESULT result = m_functions.ResultOfStep(statement.Step());
        if (result != S_OK) return Succeeded(result) ? S_OK : result;
    }
}

HRESULT CSqliteConnection::KeepRows(CSqliteStatement& statement, std::unique_ptr<ISqlRows>& rows) {
    HRESULT result = m_functions.ResultOfStep(statement.Step());
    if (!Succeeded(result)) return result;
    auto kept = std::make_unique<CSqliteKeptRows>(statement.Columns());
    const int columns = ::sqlite3_column_count(statement.Get());
    while (result == S_OK) {
        for (int column = 0; column != columns; ++column) kept->Add(ColumnValue(statement.Get(), column));
        if (kept->Bytes() > m_mostKeptBytes) {
            SetErrorInfo(L"A statement that writes returns too many rows.");
            return DB_E_ERRORSINCOMMAND;
        }
        result = m_functions.ResultOfStep(statement.Step());
    }
    if (Succeeded(result)) rows = std::move(kept);
    return Succeeded(result) ? S_OK : result;
}

void CSqliteConnection::Rollback() noexcept {
    // Some failures have ended the transaction already.
    if (::sqlite3_get_autocommit(m_handle->Get()) != 0) return;
    const std::wstring description = TakeErrorInfo();
    Ignore(m_handle->RunOwn("ROLLBACK"));
    SetErrorInfo(description);
}

bool CSqliteConnection::Reset() noexcept {
    m_functions.Use(nullptr);
    m_handle->Resume();
    ::sqlite3_set_last_insert_rowid(m_handle->Get(), 0);
    return !m_handle->IsSpoiled() && ::sqlite3_get_autocommit(m_handle->Get()) != 0;
}

}  // namespace quorbel
