#pragma once

#include <optional>
#include <sql.h>
#include <string>
#include <string_view>
#include <vector>

#include "components/provider/OdbcColumns.h"

namespace quorbel {

/// Some rows of a result, in memory, and a place among them.
class COdbcBatch {
 public:
    static constexpr std::size_t kUnlimited = ~std::size_t{0};

    /// Takes all the rows that the statement has, in place of those that were there; the place is before the
    /// first. DB_E_ERRORSINCOMMAND when they need more than `limit` bytes.
    HRESULT Load(SQLHANDLE statement, const COdbcColumns& columns, std::size_t limit);
    std::size_t RowCount() const noexcept { return m_columnCount ? m_cells.size() / m_columnCount : 0; }
    /// What the rows need, roughly.
    std::size_t ByteCount() const noexcept { return m_bytes.size() + m_cells.size() * sizeof(CCell); }

    std::size_t LongestRow() const noexcept { return m_longestRow; }

    /// False at the end.
    bool Next() noexcept;
    /// The driver's text of a value of the current row; none for NULL. Valid until Load.
    std::optional<std::string_view> Text(std::size_t column) const noexcept;

 private:
    struct CCell {
        std::size_t begin = 0;
        std::size_t length = 0;
        bool isNull = false;
    };

    HRESULT LoadValue(SQLHANDLE statement, SQLUSMALLINT number, OdbcSource source, std::size_t limit);

    std::size_t m_columnCount = 0;
    std::vector<CCell> m_cells;
    std::string m_bytes;
    std::size_t m_longestRow = 0;
    std::size_t m_next = 0;
};

/// What the driver's text of a value means.
CSqlValue ParseOdbcValue(OdbcSource source, std::string_view text) noexcept;

}  // namespace quorbel
