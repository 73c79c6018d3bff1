#pragma once

#include <optional>

#include "components/provider/OdbcCursor.h"

namespace quorbel {

/// The rows of a statement: those that are there, then those that a cursor still has.
class COdbcRows final : public ISqlRows {
 public:
    /// `session` outlives the rows.
    COdbcRows(COdbcSession& session, COdbcResult result, std::optional<COdbcCursor> cursor)
        : m_session(session), m_result(std::move(result)), m_cursor(std::move(cursor)) {}

    std::span<const CSqlColumn> Columns() const override { return m_result.columns.shown; }
    HRESULT Next() override;
    CSqlValue Value(std::size_t column) override;

 private:
    COdbcSession& m_session;
    COdbcResult m_result;
    std::optional<COdbcCursor> m_cursor;
};

}  // namespace quorbel
