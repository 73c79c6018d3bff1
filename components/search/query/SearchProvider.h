#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "components/oledb/SessionConnection.h"
#include "components/search/query/SearchConnection.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

inline constexpr wchar_t kSearchProviderName[] = L"Quorbel.SearchProvider";

/// The index in a folder, as a pool opens it. From any thread.
class CSearchDatabase final : public IDatabase {
 public:
    CSearchDatabase(std::string folder, const CSearchOptions& options, IClock& clock = SystemClock())
        : m_folder(std::move(folder)), m_options(options), m_clock(clock) {}

    HRESULT Open(std::unique_ptr<IConnection>& connection) override;
    std::uint64_t Version() const noexcept override;

 private:
    const std::string m_folder;
    const CSearchOptions m_options;
    IClock& m_clock;
};

/// A data source of the provider: the way to sessions.
class CSearchSource final : public CComObject<IDBInitialize, IDBCreateSession> {
 public:
    explicit CSearchSource(std::shared_ptr<CConnectionPool> pool) : m_pool(std::move(pool)) {}

    /// Fails when there is no index.
    HRESULT Initialize() override;
    HRESULT Uninitialize() override;
    HRESULT CreateSession(IUnknown* outer, const GUID& interfaceId, IUnknown** session) override;

 private:
    const std::shared_ptr<CConnectionPool> m_pool;
    std::atomic<bool> m_isInitialized{false};
};

/// A session of the provider: a connection to the index.
class CSearchSession final : public CComObject<IOpenRowset, IDBCreateCommand> {
 public:
    explicit CSearchSession(std::unique_ptr<CPooledConnection> connection)
        : m_connection(std::make_shared<CSessionConnection>(std::move(connection))) {}

    HRESULT CreateCommand(IUnknown* outer, const GUID& interfaceId, IUnknown** command) override;

 private:
    const std::shared_ptr<CSessionConnection> m_connection;
};

/// A command of the provider, without parameters. Cancel from any thread, all else from one at a time.
class CSearchCommandObject final : public CComObject<ICommandText> {
 public:
    /// Throws std::bad_alloc.
    explicit CSearchCommandObject(std::shared_ptr<CSessionConnection> connection)
        : m_connection(std::move(connection)), m_isCanceled(std::make_shared<CCancelFlag>(false)) {}

    HRESULT Cancel() override;
    HRESULT Execute(IUnknown* outer, const GUID& interfaceId, DBPARAMS* parameters, std::int64_t* affected,
                    IUnknown** rowset) override;
    HRESULT SetCommandText(const GUID& dialect, const wchar_t* text) override;

 private:
    HRESULT Run(const GUID& interfaceId, IUnknown** rowset);

    const std::shared_ptr<CSessionConnection> m_connection;
    const std::shared_ptr<CCancelFlag> m_isCanceled;
    std::wstring m_text;
};

}  // namespace quorbel
