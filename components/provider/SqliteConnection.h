#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "components/provider/SqlConnection.h"
#include "components/provider/SqliteFunctions.h"
#include "components/provider/SqliteHandle.h"
#include "components/provider/SqliteStatement.h"

namespace quorbel {

/// A connection to an SQLite file. Its prepared statements are kept for the next command.
class CSqliteConnection final : public ISqlConnection {
 public:
    /// E_FAIL for a file that is missing or no database.
    static HRESULT Open(const std::string& path, const CSqliteOptions& options,
                        std::unique_ptr<ISqlConnection>& connection);

    HRESULT Execute(const CSqlCommand& command, std::span<const CSqlArgument> arguments,
                    ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows) override;
    void Cancel() noexcept override { m_handle->Cancel(); }
    [[nodiscard]] bool Reset() noexcept override;

 private:
    using Statement = std::shared_ptr<CSqliteStatement>;
    enum class Transaction { None, Reading, Writing };
    struct CKept {
        Statement statement;
        std::uint64_t lastUse;
    };

    CSqliteConnection() = default;
    /// Prepares what can be prepared already.
    HRESULT Plan(const CSqlCommand& command, std::vector<Statement>& statements, Transaction& transaction);
    HRESULT Prepare(const CSqlStatement& source, Statement& statement);
    void Keep(const std::string& text, Statement statement);
    HRESULT RunAll(const CSqlCommand& command, const std::vector<Statement>& statements,
                   const CSqlArguments& arguments, std::unique_ptr<ISqlRows>& rows);
    HRESULT RunInTransaction(Transaction transaction, const CSqlCommand& command,
                             const std::vector<Statement>& statements, const CSqlArguments& arguments,
                             std::unique_ptr<ISqlRows>& rows);
    HRESULT RunToEnd(CSqliteStatement& statement);
    HRESULT KeepRows(CSqliteStatement& statement, std::unique_ptr<ISqlRows>& rows);
    void Rollback() noexcept;

    CSqliteFunctions m_functions;  // outlives the handle
    std::unique_ptr<CSqliteHandle> m_handle;
    std::size_t m_mostKeptBytes = 0;
    std::unordered_map<std::string, CKept> m_statements;  // by text; gone before the handle
    std::uint64_t m_uses = 0;
};

}  // namespace quorbel
