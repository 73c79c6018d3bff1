#pragma once

#include <span>
#include <string>

#include "components/provider/OdbcBatch.h"
#include "components/provider/OdbcSession.h"
#include "components/provider/OdbcStatement.h"

namespace quorbel {

/// Rows that have been read, and what their columns are.
struct COdbcResult {
    COdbcColumns columns;
    COdbcBatch batch;
};

/// A query's text with the columns that hold days or moments converted to text by the server.
std::string WithTimesAsText(const COdbcStatement& statement, const COdbcColumns& columns);

/// Reads a query's rows in batches of about a megabyte from a cursor of the server.
class COdbcCursor {
 public:
    enum class Lifetime {
        ReadOnlyTransaction,  ///< in a transaction of its own, which ends with the last row
        Session,  ///< opened in the current transaction; the rest of the rows is kept by the server at its
                  ///< commit
    };

    COdbcCursor(COdbcSession& session, Lifetime lifetime) noexcept
        : m_session(session), m_lifetime(lifetime) {}

    /// Opens the cursor and reads the first batch.
    HRESULT Open(const COdbcStatement& statement, std::span<const OdbcParameter> parameters,
                 COdbcResult& result);
    /// Reads the next batch in place of the last one; none is left when IsAtEnd.
    HRESULT Fetch(COdbcResult& result);
    bool IsAtEnd() const noexcept { return m_isAtEnd; }

 private:
    std::string Declaration(const std::string& query) const;
    HRESULT Load(SQLHANDLE statement, COdbcResult& result);
    HRESULT Finish();

    COdbcSession& m_session;
    const Lifetime m_lifetime;
    std::size_t m_batchRows = 2;  ///< so that one row needs no second batch to be known as the last
    bool m_isAtEnd = false;
};

}  // namespace quorbel
