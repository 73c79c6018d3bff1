#pragma once

#include <memory>
#include <string>
#include <vector>

#include "components/provider/SqlArguments.h"
#include "components/provider/SqlConnection.h"
#include "components/provider/SqliteHandle.h"

namespace quorbel {

/// A prepared statement of one connection, run any number of times, one at a time.
class CSqliteStatement {
 public:
    CSqliteStatement(CSqliteHandle& handle, CPreparedSqlite prepared)
        : m_handle(handle), m_prepared(std::move(prepared)) {}

    SqliteEffect Effect() const noexcept { return m_prepared.effect; }
    sqlite3_stmt* Get() const noexcept { return m_prepared.statement.get(); }

    /// Sets the parameters before the first step; one without an argument is NULL. `line` is named by
    /// failures of this run.
    HRESULT Bind(const std::vector<std::wstring>& parameters, const CSqlArguments& arguments,
                 std::size_t line);
    /// S_OK with a row, DB_S_ENDOFROWSET, or a failure.
    HRESULT Step() { return m_handle.Step(Get(), m_line); }
    /// The columns of the result; after the first step.
    std::shared_ptr<const std::vector<CSqlColumn>> Columns();
    /// Ends a run, at any place.
    void Reset() noexcept;

 private:
    CSqliteHandle& m_handle;
    CPreparedSqlite m_prepared;
    std::size_t m_line = 1;
    std::shared_ptr<const std::vector<CSqlColumn>> m_columns;
    int m_preparations = -1;  // when m_columns was made
};

}  // namespace quorbel
