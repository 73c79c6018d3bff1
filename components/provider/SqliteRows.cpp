#include "components/provider/SqliteRows.h"

#include "components/provider/SqliteValues.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

HRESULT CSqliteRows::Open(std::shared_ptr<CSqliteStatement> statement, CSqliteFunctions& functions,
                          std::unique_ptr<ISqlRows>& rows) {
    std::unique_ptr<CSqliteRows> opened(new CSqliteRows(std::move(statement), functions));
    opened->m_first = opened->Step();
    if (!Succeeded(opened->m_first)) return opened->m_first;
    opened->m_columns = opened->m_statement->Columns();
    rows = std::move(opened);
    return S_OK;
}

CSqliteRows::~CSqliteRows() {
    m_statement->Reset();
}

HRESULT CSqliteRows::Next() {
    if (!m_isBeforeFirst) return Step();
    m_isBeforeFirst = false;
    return m_first;
}

CSqlValue CSqliteRows::Value(std::size_t column) {
    return ColumnValue(m_statement->Get(), static_cast<int>(column));
}

HRESULT CSqliteRows::Step() {
    return m_functions.ResultOfStep(m_statement->Step());
}

}  // namespace quorbel
