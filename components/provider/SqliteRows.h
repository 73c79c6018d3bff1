#pragma once

#include <memory>
#include <vector>

#include "components/provider/SqliteFunctions.h"
#include "components/provider/SqliteStatement.h"

namespace quorbel {

/// The rows of a reading statement, fetched as they are asked for.
class CSqliteRows final : public ISqlRows {
 public:
    /// Steps `statement`, which is bound, to its first row; it belongs to the rows until their end.
    static HRESULT Open(std::shared_ptr<CSqliteStatement> statement, CSqliteFunctions& functions,
                        std::unique_ptr<ISqlRows>& rows);
    ~CSqliteRows() override;

    std::span<const CSqlColumn> Columns() const override { return *m_columns; }
    HRESULT Next() override;
    CSqlValue Value(std::size_t column) override;

 private:
    CSqliteRows(std::shared_ptr<CSqliteStatement> statement, CSqliteFunctions& functions)
        : m_statement(std::move(statement)), m_functions(functions) {}
    HRESULT Step();

    const std::shared_ptr<CSqliteStatement> m_statement;
    CSqliteFunctions& m_functions;
    std::shared_ptr<const std::vector<CSqlColumn>> m_columns;
    HRESULT m_first = S_OK;  // of the step to the first row
    bool m_isBeforeFirst = true;
};

}  // namespace quorbel
