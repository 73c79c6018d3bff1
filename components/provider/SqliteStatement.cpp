#include "components/provider/SqliteStatement.h"

#include "components/provider/SqliteValues.h"
#include "platform/com/ErrorInfo.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

HRESULT CSqliteStatement::Bind(const std::vector<std::wstring>& parameters, const CSqlArguments& arguments,
                               std::size_t line) {
    m_line = line;
    int number = 0;
    for (const std::wstring& name : parameters) {
        ++number;
        const VARIANT* const value = arguments.Find(name);
        const int result = value ? BindValue(Get(), number, *value) : ::sqlite3_bind_null(Get(), number);
        if (result == SQLITE_OK) continue;
        if (result != SQLITE_MISMATCH) return m_handle.Failure(result, line);
        SetErrorInfo(L"The parameter \"" + name + L"\" has a value of a type that cannot be stored.");
        return DISP_E_TYPEMISMATCH;
    }
    return S_OK;
}

std::shared_ptr<const std::vector<CSqlColumn>> CSqliteStatement::Columns() {
    // A change of the schema may have changed them.
    const int preparations = ::sqlite3_stmt_status(Get(), SQLITE_STMTSTATUS_REPREPARE, 0);
    if (!m_columns || preparations != m_preparations) {
        m_columns = std::make_shared<const std::vector<CSqlColumn>>(DescribeColumns(Get()));
        m_preparations = preparations;
    }
    return m_columns;
}

void CSqliteStatement::Reset() noexcept {
    // Repeats the result of the last step, which has been reported.
    ::sqlite3_reset(Get());
    ::sqlite3_clear_bindings(Get());
}

}  // namespace quorbel
