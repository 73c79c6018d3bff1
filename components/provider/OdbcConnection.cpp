#include "components/provider/OdbcConnection.h"

#include <algorithm>
#include <array>

#include "components/provider/OdbcParameters.h"
#include "components/provider/OdbcRows.h"
#include "components/provider/SqliteConnection.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

/// Of the rows that a writing statement returns.
constexpr std::size_t kMostKeptBytes = 64 * 1024 * 1024;

using Kind = COdbcStatement::Kind;

}  // namespace

HRESULT COdbcConnection::Open(std::shared_ptr<COdbcHandle> environment, const std::wstring& connectionString,
                              std::unique_ptr<ISqlConnection>& connection) {
    const SQLHANDLE handle = environment->Get();
    std::unique_ptr<COdbcConnection> opened(new COdbcConnection(std::move(environment)));
    HRESULT result = CSqliteConnection::Open(":memory:", {}, opened->m_functions);
    if (Succeeded(result)) result = opened->m_session.Connect(handle, connectionString);
    if (Succeeded(result)) connection = std::move(opened);
    return result;
}

HRESULT COdbcConnection::Execute(const CSqlCommand& command, std::span<const CSqlArgument> arguments,
                                 ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows) {
    std::vector<CStep> steps;
    HRESULT result = Plan(command, CSqlArguments(arguments), steps);
    if (Succeeded(result)) result = RunAll(steps, arguments, functions, rows);
    if (!Succeeded(result)) {
        rows.reset();
        m_session.Rollback();
    }
    return result;
}

HRESULT COdbcConnection::Plan(const CSqlCommand& command, const CSqlArguments& arguments,
                              std::vector<CStep>& steps) {
    if (command.statements.empty()) {
        SetErrorInfo(L"The command holds no statement.");
        return DB_E_ERRORSINCOMMAND;
    }
    for (const CSqlStatement& statement : command.statements) {
        CStep& step = steps.emplace_back();
        HRESULT result = ParseOdbcStatement(statement, step.statement);
        if (!Succeeded(result)) return result;
        if (step.statement.kind == Kind::Functions) {
            step.source.statements.push_back(statement);
        } else {
            result = ChooseOdbcParameters(step.statement, arguments, step.parameters);
        }
        if (!Succeeded(result)) return result;
    }
    return S_OK;
}

HRESULT COdbcConnection::RunAll(std::span<const CStep> steps, std::span<const CSqlArgument> arguments,
                                ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows) {
    for (const CStep& step : steps.first(steps.size() - 1)) {
        const HRESULT result = RunEarlier(step, arguments, functions);
        if (!Succeeded(result)) return result;
    }
    const CStep& last = steps.back();
    switch (last.statement.kind) {
        case Kind::Functions: {
            const HRESULT result = m_functions->Execute(last.source, arguments, functions, rows);
            return Succeeded(result) ? m_session.Commit() : result;
        }
        case Kind::Query: return RunQuery(last, rows);
        case Kind::Change:
        case Kind::Other: return RunChange(last, rows);
    }
    return E_UNEXPECTED;
}

HRESULT COdbcConnection::RunEarlier(const CStep& step, std::span<const CSqlArgument> arguments,
                                    ISqlFunctions& functions) {
    if (step.statement.kind == Kind::Functions) {
        std::unique_ptr<ISqlRows> rows;
        HRESULT result = m_functions->Execute(step.source, arguments, functions, rows);
        while (result == S_OK) result = rows->Next();
        return Succeeded(result) ? S_OK : result;
    }
    const HRESULT result = m_session.IsInTransaction() ? S_OK : m_session.Begin();
    if (!Succeeded(result)) return result;
    COdbcHandle statement;
    return m_session.Run(step.statement.text, step.parameters, statement);
}

HRESULT COdbcConnection::RunQuery(const CStep& step, std::unique_ptr<ISqlRows>& rows) {
    return m_session.IsInTransaction() ? RunQueryInTransaction(step, rows) : RunQueryAlone(step, rows);
}

bool COdbcConnection::MayBeChange() const noexcept {
    // Refused in a transaction that only reads; refused as a cursor: changes in WITH, FOR UPDATE, INTO.
    static constexpr std::array<std::string_view, 3> kStates{"25006", "0A000", "42601"};
    return std::find(kStates.begin(), kStates.end(), m_session.LastState()) != kStates.end();
}

HRESULT COdbcConnection::RunQueryAlone(const CStep& step, std::unique_ptr<ISqlRows>& rows) {
    COdbcResult result;
    COdbcCursor cursor(m_session, COdbcCursor::Lifetime::ReadOnlyTransaction);
    const HRESULT opened = cursor.Open(step.statement, step.parameters, result);
    if (opened == DB_E_ERRORSINCOMMAND && MayBeChange()) {
        m_session.Rollback();
        return RunChange(step, rows);
    }
    if (!Succeeded(opened)) return opened;
    rows = std::make_unique<COdbcRows>(m_session, std::move(result), std::move(cursor));
    return S_OK;
}

HRESULT COdbcConnection::RunQueryInTransaction(const CStep& step, std::unique_ptr<ISqlRows>& rows) {
    COdbcResult result;
    COdbcCursor cursor(m_session, COdbcCursor::Lifetime::Session);
    HRESULT done = m_session.Run("SAVEPOINT quorbel_last");
    if (Succeeded(done)) done = cursor.Open(step.statement, step.parameters, result);
    if (done == DB_E_ERRORSINCOMMAND && MayBeChange()) {
        done = m_session.Run("ROLLBACK TO SAVEPOINT quorbel_last");
        return Succeeded(done) ? RunChange(step, rows) : done;
    }
    if (Succeeded(done)) done = m_session.Commit();
    if (!Succeeded(done)) return done;
    rows = std::make_unique<COdbcRows>(m_session, std::move(result), std::move(cursor));
    return S_OK;
}

HRESULT COdbcConnection::RunChange(const CStep& step, std::unique_ptr<ISqlRows>& rows) {
    COdbcResult result;
    HRESULT done = m_session.IsInTransaction() ? S_OK : m_session.Begin();
    if (Succeeded(done)) done = RunKept(step, result);
    if (Succeeded(done)) done = m_session.Commit();
    if (!Succeeded(done)) return done;
    rows = std::make_unique<COdbcRows>(m_session, std::move(result), std::nullopt);
    return S_OK;
}

HRESULT COdbcConnection::RunKept(const CStep& step, COdbcResult& result) {
    const COdbcStatement& statement = step.statement;
    // A change in WITH may not stand deeper, and most other statements nowhere else at all.
    const bool canBePart = (statement.kind == Kind::Change && statement.returnsRows) ||
                           (statement.kind == Kind::Query && !statement.startsWith);
    COdbcHandle handle;
    HRESULT done = S_OK;
    if (canBePart) {
        done = m_session.Prepare(statement.text, step.parameters, handle);
        if (Succeeded(done)) done = DescribeOdbcColumns(handle.Get(), result.columns);
        if (!Succeeded(done)) return done;
        handle = COdbcHandle();
    }
    const bool converted = result.columns.HaveTimes();
    done = m_session.Run(converted ? WithTimesAsText(statement, result.columns) : statement.text,
                         step.parameters, handle);
    if (!Succeeded(done) || !handle.IsOpen()) return done;
    if (converted) {
        result.columns.TakeTimesAsText();
    } else {
        done = DescribeOdbcColumns(handle.Get(), result.columns);
    }
    return Succeeded(done) ? result.batch.Load(handle.Get(), result.columns, kMostKeptBytes) : done;
}

void COdbcConnection::Cancel() noexcept {
    m_session.Cancellation().Cancel();
    m_functions->Cancel();
}

bool COdbcConnection::Reset() noexcept {
    const bool functionsAreFit = m_functions->Reset();
    return m_session.Renew() && functionsAreFit;
}

}  // namespace quorbel
