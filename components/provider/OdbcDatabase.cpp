#include "components/provider/OdbcDatabase.h"

#include "components/provider/OdbcConnection.h"
#include "components/provider/OdbcHandle.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

class COdbcDatabase final : public ISqlDatabase {
 public:
    explicit COdbcDatabase(std::wstring connectionString)
        : m_connectionString(std::move(connectionString)),
          m_environment(std::make_shared<COdbcHandle>(SQL_HANDLE_ENV, nullptr)) {
        SQLSetEnvAttr(m_environment->Get(), SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3),
                      0);
    }

    HRESULT Connect(std::unique_ptr<ISqlConnection>& connection) override {
        return COdbcConnection::Open(m_environment, m_connectionString, connection);
    }

    bool ResetMayWait() const noexcept override { return true; }

 private:
    const std::wstring m_connectionString;
    const std::shared_ptr<COdbcHandle> m_environment;  // the connections' as well
};

}  // namespace

std::shared_ptr<ISqlDatabase> OpenOdbcDatabase(std::wstring connectionString) {
    return std::make_shared<COdbcDatabase>(std::move(connectionString));
}

}  // namespace quorbel
