#pragma once

#include <memory>
#include <optional>
#include <string>

#include "components/search/query/SearchConnection.h"

namespace quorbel {

/// The rows of a command, fetched as they are asked for, all from one state of the index.
class CSearchRows final : public ISqlRows {
 public:
    /// Runs the plan up to its first row. The connection lives longer.
    static HRESULT Open(CSearchConnection& connection, CSearchPlan plan, std::shared_ptr<CSearchRows>& rows);
    ~CSearchRows() override;

    std::span<const CSqlColumn> Columns() const override { return m_plan.columns; }
    HRESULT Next() override;
    CSqlValue Value(std::size_t column) override;

 private:
    CSearchRows(CSearchConnection& connection, CSearchPlan plan)
        : m_connection(connection), m_plan(std::move(plan)) {}
    HRESULT Prepare();
    HRESULT Advance();

    CSearchConnection& m_connection;
    const CSearchPlan m_plan;
    CSearchConnection::Statement m_search;
    CSearchConnection::Statement m_details;
    HRESULT m_first = S_OK;  // of the step to the first row
    bool m_isBeforeFirst = true;
    std::optional<std::string> m_summary;  // of the present row, once it was asked for
};

/// The rank of a relevance: 0 for none, else 1 to 1000, the more the better.
std::int64_t RankOf(double relevance) noexcept;

/// An excerpt of the index as it is given to consumers: its marks are kHitBegin and kHitEnd, which are
/// nowhere else in it.
std::string SummaryOf(std::string_view excerpt);

}  // namespace quorbel
