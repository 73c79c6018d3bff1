#pragma once

#include <functional>
#include <memory>

#include "components/oledb/Accessors.h"
#include "components/oledb/Rows.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// What the interfaces of a rowset do, over the rows of a command: once through from the first to the last,
/// one at a time. One thread at a time.
class CRowReader {
 public:
    /// `isCanceled` says whether the command was cancelled. Throws std::bad_alloc.
    CRowReader(std::shared_ptr<ISqlRows> rows, std::function<bool()> isCanceled);

    /// As IRowset, IAccessor and IColumnsInfo say.
    /// @{
    HRESULT GetData(HROW row, HACCESSOR accessor, void* data);
    HRESULT GetNextRows(std::ptrdiff_t offset, std::ptrdiff_t count, std::size_t* obtained, HROW** rows);
    HRESULT ReleaseRows(std::size_t count, const HROW* rows, std::uint32_t* references);
    HRESULT RestartPosition() const;
    HRESULT CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                           HACCESSOR* accessor, DBSTATUS* statuses);
    HRESULT ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references);
    HRESULT GetColumnInfo(std::size_t* count, DBCOLUMNINFO** info, wchar_t** names) const;
    /// @}

 private:
    const std::shared_ptr<ISqlRows> m_rows;
    const std::function<bool()> m_isCanceled;
    CAccessors m_accessors;
    HROW m_row = 0;         // handle of the present row; they count up
    bool m_hasRow = false;  // it was not released yet
    HRESULT m_end = S_OK;   // once there are no more rows: why
};

}  // namespace quorbel
