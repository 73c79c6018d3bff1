#pragma once

#include <optional>
#include <span>
#include <string>

#include "components/provider/OdbcCancellation.h"
#include "components/provider/OdbcError.h"
#include "components/provider/OdbcHandle.h"
#include "platform/com/Com.h"

namespace quorbel {

/// The value of a parameter, UTF-8; none for NULL. The server takes it as it takes a literal without a type.
using OdbcParameter = std::optional<std::string>;

/// One session of the server: runs statements. One thread at a time, except for Cancel.
class COdbcSession {
 public:
    COdbcSession() = default;
    ~COdbcSession();
    COdbcSession(const COdbcSession&) = delete;
    COdbcSession& operator=(const COdbcSession&) = delete;

    /// E_FAIL, with a description.
    HRESULT Connect(SQLHANDLE environment, const std::wstring& connectionString);

    /// Runs a text, which may consist of several statements, and goes to the first of its results that has
    /// columns; `statement` is not open when there is none. It has to be closed before the next text is run.
    HRESULT Run(std::string_view text, std::span<const OdbcParameter> parameters, COdbcHandle& statement);
    /// Runs a text whose results do not matter.
    HRESULT Run(std::string_view text);
    /// Finds out what columns a statement has without running it.
    HRESULT Prepare(std::string_view text, std::span<const OdbcParameter> parameters, COdbcHandle& statement);
    /// Transactions. A text that was given to Run may have begun one as well: EnterTransaction says so.
    /// @{
    HRESULT Begin();
    void EnterTransaction() noexcept { m_isInTransaction = true; }
    HRESULT Commit();
    void Rollback() noexcept;
    bool IsInTransaction() const noexcept { return m_isInTransaction; }
    /// @}
    /// Takes back all that a command may have left: transactions, temporary tables, settings, cursors, what
    /// was cancelled. False: the session is of no more use.
    bool Renew() noexcept;

    /// SQLSTATE of the last failure.
    const std::string& LastState() const noexcept { return m_lastState; }
    /// The connection is lost, or in a state that is not known.
    bool IsBroken() const noexcept { return m_isBroken; }
    COdbcCancellation& Cancellation() noexcept { return m_cancellation; }

 private:
    HRESULT Open(COdbcHandle& statement);
    HRESULT Bind(SQLHANDLE statement, std::span<const OdbcParameter> parameters);
    bool RunAnyway(std::string_view text) noexcept;
    SQLRETURN ExecuteOnce(SQLHANDLE statement, std::string_view text);
    /// And goes to the first result that has columns; SQL_NO_DATA when none has.
    SQLRETURN Execute(SQLHANDLE statement, std::string_view text);
    static HRESULT ReportCancelled();
    /// `call` is what may be cancelled.
    template <class Call>
    HRESULT Guard(SQLHANDLE statement, Call call);
    HRESULT Report(SQLHANDLE statement);

    COdbcCancellation m_cancellation;
    COdbcHandle m_connection;
    bool m_isConnected = false;
    bool m_isInTransaction = false;
    bool m_isBroken = false;
    std::string m_lastState;
};

}  // namespace quorbel
