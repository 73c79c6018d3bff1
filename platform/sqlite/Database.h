#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/Error.h"

namespace quorbel {

/// A statement's argument that is stored as a blob rather than as a text.
struct CBlob {
    std::string_view bytes;
};

/// What a failure of the file is called.
struct CDatabaseErrors {
    ErrorCode damaged = ErrorCode::RegistryCorrupt;
    ErrorCode cannotOpen = ErrorCode::CannotOpenRegistry;
    ErrorCode io = ErrorCode::RegistryIoFailed;
};

/// One run of a prepared statement. It is reset when the run ends, so only one run of each statement can be
/// under way. A failure of preparing or binding is reported by the first step.
class CStatement {
 public:
    /// `result` is that of preparing; `failure` takes the first failure of any statement.
    template <class... Arguments>
    CStatement(sqlite3* connection, sqlite3_stmt* statement, int result, const CDatabaseErrors& errors,
               ErrorCode& failure, const Arguments&... arguments)
        : m_connection(connection),
          m_statement(statement),
          m_result(result),
          m_errors(errors),
          m_failure(failure) {
        (Bind(arguments), ...);
    }
    ~CStatement();
    CStatement(const CStatement&) = delete;
    CStatement& operator=(const CStatement&) = delete;

    /// Moves to the next row; false when there is none.
    CResult<bool> Step();
    /// Runs a statement that gives no rows.
    ErrorCode Run();

    /// The columns of the present row, from 0. The views live until the next step.
    std::int64_t Integer(int column) const;
    std::string_view Bytes(int column) const;
    std::wstring Text(int column) const;

 private:
    void Bind(std::int64_t number);
    void Bind(std::string_view text);
    void Bind(CBlob blob);

    sqlite3* const m_connection;
    sqlite3_stmt* const m_statement;
    int m_result;
    int m_bound = 0;
    const CDatabaseErrors& m_errors;
    ErrorCode& m_failure;
};

struct CDatabaseOptions {
    std::chrono::milliseconds busyTimeout{5000};
    std::uint64_t maximumBytes = 0;  ///< the file grows no further, DiskFull is the answer; 0 for no limit
    bool isReadOnly = false;
    /// Whether what was committed survives a power failure; what survives is whole in any case.
    bool survivesPowerFailure = true;
    CDatabaseErrors errors{};
};

/// A connection to an SQLite file, which must exist. Not synchronised.
class CDatabase {
 public:
    static CResult<std::unique_ptr<CDatabase>> Open(const std::filesystem::path& file,
                                                    const CDatabaseOptions& options);

    /// A run of a statement, which is prepared once and kept; `sql` must be a literal.
    template <class... Arguments>
    CStatement Use(std::string_view sql, const Arguments&... arguments) {
        const auto [statement, result] = Prepare(sql);
        return CStatement(m_connection.get(), statement, result, m_errors, m_failure, arguments...);
    }
    /// The first column of the first row, 0 when there is none.
    template <class... Arguments>
    CResult<std::int64_t> Number(std::string_view sql, const Arguments&... arguments);
    ErrorCode Execute(const char* sql);

    /// Begins a transaction that may write; waits for other processes' writers up to the time-out.
    ErrorCode Begin();
    /// Begins a transaction whose reads see what was there at the first of them.
    ErrorCode BeginRead();
    /// Commits; when any statement of the transaction has failed it is rolled back and that failure returned.
    ErrorCode Commit();
    void Rollback() noexcept;

    sqlite3* Handle() const noexcept { return m_connection.get(); }

 private:
    struct CClose {
        void operator()(sqlite3* connection) const noexcept { ::sqlite3_close_v2(connection); }
    };
    struct CFinalize {
        void operator()(sqlite3_stmt* statement) const noexcept { ::sqlite3_finalize(statement); }
    };
    using Connection = std::unique_ptr<sqlite3, CClose>;

    CDatabase(Connection connection, const CDatabaseErrors& errors) noexcept
        : m_errors(errors), m_connection(std::move(connection)) {}
    std::pair<sqlite3_stmt*, int> Prepare(std::string_view sql);

    const CDatabaseErrors m_errors;
    Connection m_connection;
    std::unordered_map<std::string_view, std::unique_ptr<sqlite3_stmt, CFinalize>> m_statements;
    ErrorCode m_failure = ErrorCode::Success;  ///< the first since Begin
};

template <class... Arguments>
CResult<std::int64_t> CDatabase::Number(std::string_view sql, const Arguments&... arguments) {
    CStatement query = Use(sql, arguments...);
    CResult<bool> row = query.Step();
    if (!row.IsOk()) return row.Error();
    return row.Value() ? query.Integer(0) : 0;
}

}  // namespace quorbel
