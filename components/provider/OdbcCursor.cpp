#include "components/provider/OdbcCursor.h"

#include <algorithm>

namespace quorbel {

namespace {

constexpr std::size_t kBatchBytes = 1024 * 1024;
/// Rows that follow may be longer than those before, so batches grow slowly.
/// @{
constexpr std::size_t kMostBatchRows = 512;
constexpr std::size_t kFastestGrowth = 4;
/// @}

std::string ColumnName(std::size_t index) {
    return "c" + std::to_string(index + 1);
}

}  // namespace

std::string WithTimesAsText(const COdbcStatement& statement, const COdbcColumns& columns) {
    std::string names;
    std::string values;
    for (std::size_t index = 0; index < columns.sources.size(); ++index) {
        const std::string separator = index ? "," : "";
        names += separator + ColumnName(index);
        values += separator + ColumnName(index);
        if (columns.sources[index] == OdbcSource::Time) values += "::text";
    }
    // The line ends because the text may end with a comment.
    if (statement.kind == COdbcStatement::Kind::Change) {
        return "WITH quorbel(" + names + ") AS (" + statement.text + "\n) SELECT " + values + " FROM quorbel";
    }
    return "SELECT " + values + " FROM (" + statement.text + "\n) AS quorbel(" + names + ")";
}

std::string COdbcCursor::Declaration(const std::string& query) const {
    const char* const hold = m_lifetime == Lifetime::Session ? "WITH HOLD " : "";
    return std::string("DECLARE quorbel_rows NO SCROLL CURSOR ") + hold + "FOR " + query + "\n;";
}

HRESULT COdbcCursor::Open(const COdbcStatement& statement, std::span<const OdbcParameter> parameters,
                          COdbcResult& result) {
    std::string text = Declaration(statement.text) + "FETCH 0 FROM quorbel_rows";
    if (m_lifetime == Lifetime::ReadOnlyTransaction) {
        text = "BEGIN READ ONLY;" + text;
        m_session.EnterTransaction();
    }
    COdbcHandle handle;
    HRESULT opened = m_session.Run(text, parameters, handle);
    if (!Succeeded(opened)) return opened;
    if (!handle.IsOpen()) return Finish();
    opened = DescribeOdbcColumns(handle.Get(), result.columns);
    handle = COdbcHandle();
    if (!Succeeded(opened)) return opened;
    if (!result.columns.HaveTimes()) return Fetch(result);

    text = "CLOSE quorbel_rows;" + Declaration(WithTimesAsText(statement, result.columns)) + "FETCH " +
           std::to_string(m_batchRows) + " FROM quorbel_rows";
    result.columns.TakeTimesAsText();
    opened = m_session.Run(text, parameters, handle);
    return Succeeded(opened) ? Load(handle.Get(), result) : opened;
}

HRESULT COdbcCursor::Fetch(COdbcResult& result) {
    COdbcHandle handle;
    const std::string text = "FETCH " + std::to_string(m_batchRows) + " FROM quorbel_rows";
    const HRESULT fetched = m_session.Run(text, {}, handle);
    return Succeeded(fetched) ? Load(handle.Get(), result) : fetched;
}

HRESULT COdbcCursor::Load(SQLHANDLE statement, COdbcResult& result) {
    const HRESULT loaded = result.batch.Load(statement, result.columns, COdbcBatch::kUnlimited);
    if (!Succeeded(loaded)) return loaded;
    const std::size_t rows = result.batch.RowCount();
    if (rows < m_batchRows) return Finish();
    const std::size_t rowBytes = std::max<std::size_t>(result.batch.LongestRow(), 1);
    const std::size_t most = std::min(m_batchRows * kFastestGrowth, kMostBatchRows);
    m_batchRows = std::clamp<std::size_t>(kBatchBytes / rowBytes, 1, most);
    return S_OK;
}

HRESULT COdbcCursor::Finish() {
    m_isAtEnd = true;
    return m_lifetime == Lifetime::ReadOnlyTransaction ? m_session.Commit() : S_OK;
}

}  // namespace quorbel
