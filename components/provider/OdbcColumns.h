#pragma once

#include <sql.h>
#include <vector>

#include "components/provider/SqlConnection.h"

namespace quorbel {

/// How a column's values are read from the driver's text of them.
enum class OdbcSource {
    Integer,
    Real,
    Decimal,
    Truth,
    Text,
    Uuid,  ///< the driver writes it in upper case, the server in lower
    Time,  ///< a day or a moment: the driver's text loses zones, infinities and years beyond 9999
    Bytes,
};

/// The columns of a result.
struct COdbcColumns {
    std::vector<CSqlColumn> shown;
    std::vector<OdbcSource> sources;  ///< one for each of `shown`

    bool HaveTimes() const noexcept;
    /// The server was asked for the text of days and moments.
    void TakeTimesAsText() noexcept;
};

/// Describes the result of a statement that has been executed or prepared.
HRESULT DescribeOdbcColumns(SQLHANDLE statement, COdbcColumns& columns);

}  // namespace quorbel
