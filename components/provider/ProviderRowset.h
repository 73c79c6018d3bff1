#pragma once

#include <memory>

#include "components/oledb/RowsetObject.h"
#include "components/provider/Execution.h"
#include "components/provider/ResultValues.h"

namespace quorbel {

/// The rows of a command, and the values beside them.
class CProviderRowset final : public CRowsetObject<IResultValues> {
 public:
    /// Throws std::bad_alloc.
    explicit CProviderRowset(const std::shared_ptr<CExecution>& execution);

    HRESULT GetCount(std::uint32_t* count) override;
    HRESULT GetValue(const VARIANT* name, VARIANT* value) override;

 private:
    const CVariant m_provenance;  // as they were when the execution ended
    const CVariant m_headers;
};

}  // namespace quorbel
