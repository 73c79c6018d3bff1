#include "components/provider/OdbcSession.h"

#include <sqlucode.h>
#include <vector>

#include "platform/Error.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

namespace {

/// Seconds.
constexpr std::uintptr_t kConnectLimit = 15;

/// What this code relies on, put behind the operator's own settings so that it wins over them: parameters
/// become literals without a type, failures leave the transaction to us, rows come from cursors of ours,
/// booleans are booleans, and texts are UTF-8 whatever the process's locale (which psqlodbc otherwise takes
/// up, for the whole process).
constexpr std::wstring_view kSettings =
    L";UseServerSidePrepare=0;Protocol=7.4-0;UseDeclareFetch=0;Parse=0;BoolsAsChar=0;TrueIsMinus1=0;"
    L"LFConversion=0"
    L";ByteaAsLongVarBinary=1;ConnSettings=set client_encoding to 'UTF8'";

/// Put before the operator's own settings, which win: a server that has gone is noticed within a minute or
/// so, whether it is silent in the middle of a request or of an answer.
constexpr std::wstring_view kNetworkSettings =
    L"KeepaliveTime=30;KeepaliveInterval=10;pqopt={tcp_user_timeout=60000};";

/// DISCARD ALL also takes back what psqlodbc sets when it connects and then relies on.
constexpr std::string_view kFreshSettings =
    "SET client_encoding TO 'UTF8';SET DateStyle = 'ISO';SET extra_float_digits = 2";

std::vector<SQLWCHAR> ToOdbc(std::wstring_view text) {
    const std::u16string units = ToUtf16(text);
    return {units.begin(), units.end()};
}

}  // namespace

COdbcSession::~COdbcSession() {
    m_cancellation.Clear();
    if (m_isConnected) SQLDisconnect(m_connection.Get());
}

HRESULT COdbcSession::Connect(SQLHANDLE environment, const std::wstring& connectionString) {
    m_connection = COdbcHandle(SQL_HANDLE_DBC, environment);
    if (!m_connection.IsOpen()) return E_OUTOFMEMORY;
    SQLSetConnectAttrW(m_connection.Get(), SQL_ATTR_LOGIN_TIMEOUT,
                       reinterpret_cast<SQLPOINTER>(kConnectLimit), 0);
    std::vector<SQLWCHAR> text =
        ToOdbc(std::wstring(kNetworkSettings) + connectionString + std::wstring(kSettings));
    SQLSMALLINT length = 0;
    if (!SQL_SUCCEEDED(SQLDriverConnectW(m_connection.Get(), nullptr, text.data(),
                                         static_cast<SQLSMALLINT>(text.size()), nullptr, 0, &length,
                                         SQL_DRIVER_NOPROMPT))) {
        Ignore(ReportOdbcError(TakeOdbcError(SQL_HANDLE_DBC, m_connection.Get())));
        return E_FAIL;
    }
    m_isConnected = true;
    return S_OK;
}

HRESULT COdbcSession::Open(COdbcHandle& statement) {
    statement = COdbcHandle(SQL_HANDLE_STMT, m_connection.Get());
    return statement.IsOpen() ? S_OK : ReportOdbcError(TakeOdbcError(SQL_HANDLE_DBC, m_connection.Get()));
}

HRESULT COdbcSession::Bind(SQLHANDLE statement, std::span<const OdbcParameter> parameters) {
    static SQLLEN null = SQL_NULL_DATA;
    static SQLLEN terminated = SQL_NTS;
    for (std::size_t index = 0; index < parameters.size(); ++index) {
        const OdbcParameter& parameter = parameters[index];
        const SQLULEN size = parameter && !parameter->empty() ? parameter->size() : 1;
        char* const data = parameter ? const_cast<char*>(parameter->c_str()) : nullptr;
        if (!SQL_SUCCEEDED(SQLBindParameter(statement, static_cast<SQLUSMALLINT>(index + 1), SQL_PARAM_INPUT,
                                            SQL_C_CHAR, SQL_VARCHAR, size, 0, data, 0,
                                            parameter ? &terminated : &null))) {
            return Report(statement);
        }
    }
    return S_OK;
}

HRESULT COdbcSession::ReportCancelled() {
    SetErrorInfo(L"The command was cancelled.");
    return DB_E_CANCELED;
}

template <class Call>
HRESULT COdbcSession::Guard(SQLHANDLE statement, Call call) {
    SQLRETURN result;
    {
        COdbcCancellation::CCall running(m_cancellation, statement);
        if (!running.MayRun()) return ReportCancelled();
        result = call();
    }
    return SQL_SUCCEEDED(result) || result == SQL_NO_DATA ? S_OK : Report(statement);
}

HRESULT COdbcSession::Report(SQLHANDLE statement) {
    const COdbcError error = TakeOdbcError(SQL_HANDLE_STMT, statement);
    m_lastState = error.state;
    SQLUINTEGER dead = SQL_CD_FALSE;
    SQLGetConnectAttrW(m_connection.Get(), SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr);
    if (dead == SQL_CD_TRUE || IsConnectionLost(error)) m_isBroken = true;
    const HRESULT result = ReportOdbcError(error);
    if (m_isBroken) return E_FAIL;
    // Whatever the driver makes of it: a call that was cancelled in the middle can fail for its state alone.
    return m_cancellation.IsCancelled() ? ReportCancelled() : result;
}

SQLRETURN COdbcSession::ExecuteOnce(SQLHANDLE statement, std::string_view text) {
    std::vector<SQLWCHAR> units = ToOdbc(FromUtf8(text));
    return SQLExecDirectW(statement, units.data(), static_cast<SQLINTEGER>(units.size()));
}

SQLRETURN COdbcSession::Execute(SQLHANDLE statement, std::string_view text) {
    SQLRETURN result = ExecuteOnce(statement, text);
    while (SQL_SUCCEEDED(result)) {
        SQLSMALLINT columns = 0;
        result = SQLNumResultCols(statement, &columns);
        if (!SQL_SUCCEEDED(result) || columns > 0) return result;
        result = SQLMoreResults(statement);
    }
    return result;
}

HRESULT COdbcSession::Run(std::string_view text, std::span<const OdbcParameter> parameters,
                          COdbcHandle& statement) {
    HRESULT result = Open(statement);
    if (Succeeded(result)) result = Bind(statement.Get(), parameters);
    if (!Succeeded(result)) return result;
    SQLRETURN executed = SQL_ERROR;
    result = Guard(statement.Get(), [&] { return executed = Execute(statement.Get(), text); });
    if (executed == SQL_NO_DATA) statement = COdbcHandle();
    // A cancellation that came too late has closed the result all the same.
    return Succeeded(result) && m_cancellation.IsCancelled() ? ReportCancelled() : result;
}

HRESULT COdbcSession::Run(std::string_view text) {
    COdbcHandle statement;
    return Run(text, {}, statement);
}

HRESULT COdbcSession::Prepare(std::string_view text, std::span<const OdbcParameter> parameters,
                              COdbcHandle& statement) {
    HRESULT result = Open(statement);
    if (Succeeded(result)) result = Bind(statement.Get(), parameters);
    if (!Succeeded(result)) return result;
    result = Guard(statement.Get(), [&] {
        std::vector<SQLWCHAR> units = ToOdbc(FromUtf8(text));
        SQLSMALLINT columns = 0;
        const SQLRETURN prepared =
            SQLPrepareW(statement.Get(), units.data(), static_cast<SQLINTEGER>(units.size()));
        // The server is asked only now.
        return SQL_SUCCEEDED(prepared) ? SQLNumResultCols(statement.Get(), &columns) : prepared;
    });
    return Succeeded(result) && m_cancellation.IsCancelled() ? ReportCancelled() : result;
}

HRESULT COdbcSession::Begin() {
    m_isInTransaction = true;
    return Run("BEGIN");
}

HRESULT COdbcSession::Commit() {
    if (!m_isInTransaction) return S_OK;
    COdbcHandle statement;
    HRESULT result = Open(statement);
    // Nothing more is asked of the statement: what the server has committed is no failure, cancelled or not.
    if (Succeeded(result)) {
        result = Guard(statement.Get(), [&] { return ExecuteOnce(statement.Get(), "COMMIT"); });
    }
    if (Succeeded(result)) m_isInTransaction = false;
    return result;
}

void COdbcSession::Rollback() noexcept {
    if (!std::exchange(m_isInTransaction, false) || m_isBroken) return;
    Ignore(RunAnyway("ROLLBACK"));
}

bool COdbcSession::Renew() noexcept {
    m_cancellation.Clear();
    Rollback();
    if (!m_isBroken && RunAnyway("DISCARD ALL")) Ignore(RunAnyway(kFreshSettings));
    m_cancellation.Clear();
    return !m_isBroken;
}

bool COdbcSession::RunAnyway(std::string_view text) noexcept {
    COdbcHandle statement;
    if (!Succeeded(Open(statement))) return false;
    const SQLRETURN result = Execute(statement.Get(), text);
    if (SQL_SUCCEEDED(result) || result == SQL_NO_DATA) return true;
    m_isBroken = true;
    return false;
}

}  // namespace quorbel
