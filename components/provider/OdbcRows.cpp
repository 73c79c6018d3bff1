#include "components/provider/OdbcRows.h"

#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

HRESULT COdbcRows::Next() {
    if (m_session.Cancellation().IsCancelled()) {
        SetErrorInfo(L"The command was cancelled.");
        return DB_E_CANCELED;
    }
    while (!m_result.batch.Next()) {
        if (!m_cursor || m_cursor->IsAtEnd()) return DB_S_ENDOFROWSET;
        const HRESULT fetched = m_cursor->Fetch(m_result);
        if (!Succeeded(fetched)) return fetched;
    }
    return S_OK;
}

CSqlValue COdbcRows::Value(std::size_t column) {
    const auto text = m_result.batch.Text(column);
    if (!text) return std::monostate();
    return ParseOdbcValue(m_result.columns.sources[column], *text);
}

}  // namespace quorbel
