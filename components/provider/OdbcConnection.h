#pragma once

#include <memory>
#include <string>
#include <vector>

#include "components/provider/OdbcCursor.h"
#include "components/provider/SqlArguments.h"
#include "components/provider/SqlConnection.h"

namespace quorbel {

/// A connection to a server through ODBC. The functions that a command can call do not exist there:
/// statements that call them are carried out by a private, empty database in this process.
class COdbcConnection final : public ISqlConnection {
 public:
    /// E_FAIL when the server cannot be reached or refuses.
    static HRESULT Open(std::shared_ptr<COdbcHandle> environment, const std::wstring& connectionString,
                        std::unique_ptr<ISqlConnection>& connection);

    HRESULT Execute(const CSqlCommand& command, std::span<const CSqlArgument> arguments,
                    ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows) override;
    void Cancel() noexcept override;
    [[nodiscard]] bool Reset() noexcept override;

 private:
    struct CStep {
        CSqlCommand source;  ///< the one statement, for our own functions
        COdbcStatement statement;
        std::vector<OdbcParameter> parameters;
    };

    explicit COdbcConnection(std::shared_ptr<COdbcHandle> environment)
        : m_environment(std::move(environment)) {}

    HRESULT Plan(const CSqlCommand& command, const CSqlArguments& arguments, std::vector<CStep>& steps);
    HRESULT RunAll(std::span<const CStep> steps, std::span<const CSqlArgument> arguments,
                   ISqlFunctions& functions, std::unique_ptr<ISqlRows>& rows);
    HRESULT RunEarlier(const CStep& step, std::span<const CSqlArgument> arguments, ISqlFunctions& functions);
    HRESULT RunQuery(const CStep& step, std::unique_ptr<ISqlRows>& rows);
    HRESULT RunQueryAlone(const CStep& step, std::unique_ptr<ISqlRows>& rows);
    HRESULT RunQueryInTransaction(const CStep& step, std::unique_ptr<ISqlRows>& rows);
    HRESULT RunChange(const CStep& step, std::unique_ptr<ISqlRows>& rows);
    HRESULT RunKept(const CStep& step, COdbcResult& result);
    bool MayBeChange() const noexcept;

    const std::shared_ptr<COdbcHandle> m_environment;
    COdbcSession m_session;
    std::unique_ptr<ISqlConnection> m_functions;
};

}  // namespace quorbel
