#pragma once

#include <memory>
#include <string>
#include <vector>

#include "components/provider/Accessors.h"
#include "components/provider/Execution.h"
#include "components/provider/ResultValues.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// The rows of a command, once through from the first to the last, one at a time. Used by one thread at a
/// time.
class CProviderRowset final : public CComObject<IRowset, IAccessor, IColumnsInfo, IResultValues> {
 public:
    /// Throws std::bad_alloc.
    explicit CProviderRowset(std::unique_ptr<CExecution> execution);

    HRESULT GetData(HROW row, HACCESSOR accessor, void* data) override;
    HRESULT GetNextRows(HCHAPTER chapter, std::ptrdiff_t offset, std::ptrdiff_t count, std::size_t* obtained,
                        HROW** rows) override;
    HRESULT ReleaseRows(std::size_t count, const HROW* rows, std::uint32_t* options,
                        std::uint32_t* references, DBSTATUS* statuses) override;
    HRESULT RestartPosition(HCHAPTER chapter) override;

    HRESULT CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                           std::size_t rowSize, HACCESSOR* accessor, DBSTATUS* statuses) override;
    HRESULT ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references) override;

    HRESULT GetColumnInfo(std::size_t* count, DBCOLUMNINFO** info, wchar_t** names) override;

    HRESULT GetCount(std::uint32_t* count) override;
    HRESULT GetValue(const VARIANT* name, VARIANT* value) override;

 private:
    const std::unique_ptr<CExecution> m_execution;
    const CVariant m_provenance;  // as they were when the execution ended
    const CVariant m_headers;
    CAccessors m_accessors;
    HROW m_row = 0;         // handle of the present row; they count up
    bool m_hasRow = false;  // it was not released yet
    HRESULT m_end = S_OK;   // once there are no more rows: why
};

}  // namespace quorbel
