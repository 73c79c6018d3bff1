#include "components/provider/SqliteDatabase.h"

#include "components/provider/SqliteConnection.h"
#include "platform/File.h"
#include "platform/LocalPath.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

class CSqliteDatabase final : public ISqlDatabase {
 public:
    CSqliteDatabase(std::wstring path, const CSqliteOptions& options)
        : m_path(std::move(path)), m_options(options) {}

    HRESULT Connect(std::unique_ptr<ISqlConnection>& connection) override {
        const auto localPath = ToLocalPath(m_path);
        // SQLite would open a FIFO as well, and wait.
        const auto stamp = StampOf(m_path);
        if (!localPath.IsOk() || !stamp.IsOk()) {
            SetErrorInfo(L"The database \"" + m_path + L"\" is no file.");
            return E_FAIL;
        }
        const HRESULT result = CSqliteConnection::Open(localPath.Value(), m_options, connection);
        if (!Succeeded(result)) {
            SetErrorInfo(L"The database \"" + m_path + L"\" cannot be opened: " + TakeErrorInfo());
        }
        return result;
    }

    SqlDialect Dialect() const noexcept override { return SqlDialect::Sqlite; }

    std::uint64_t Version() const noexcept override {
        const auto stamp = StampOf(m_path);
        return stamp.IsOk() ? stamp.Value().device * 0x9E3779B97F4A7C15 + stamp.Value().inode : 0;
    }

 private:
    const std::wstring m_path;
    const CSqliteOptions m_options;
};

}  // namespace

std::shared_ptr<ISqlDatabase> OpenSqliteDatabase(std::wstring path, const CSqliteOptions& options) {
    return std::make_shared<CSqliteDatabase>(std::move(path), options);
}

}  // namespace quorbel
