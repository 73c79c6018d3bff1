#include "components/search/query/SearchProvider.h"

#include "components/oledb/ComBorder.h"
#include "components/oledb/RowsetObject.h"
#include "components/search/query/CommandParser.h"
#include "components/search/query/SearchRows.h"
#include "platform/File.h"
#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

/// One execution of a command: it has the session's connection until it ends.
class CSearchExecution {
 public:
    static HRESULT Run(std::shared_ptr<CSessionConnection> connection,
                       std::shared_ptr<CCancelFlag> isCanceled, CSearchPlan plan,
                       std::shared_ptr<CSearchExecution>& execution) {
        const HRESULT taken = connection->Take(*isCanceled);
        if (!Succeeded(taken)) return taken;
        // From here on it is given back with the execution.
        const std::shared_ptr<CSearchExecution> run(
            new CSearchExecution(std::move(connection), std::move(isCanceled)));
        const HRESULT result =
            CSearchRows::Open(run->m_connection->Get<CSearchConnection>(), std::move(plan), run->m_rows);
        if (Succeeded(result)) execution = run;
        return result;
    }
    ~CSearchExecution() {
        m_rows.reset();
        m_connection->GiveBack();
    }
    CSearchExecution(const CSearchExecution&) = delete;
    CSearchExecution& operator=(const CSearchExecution&) = delete;

    ISqlRows& Rows() const noexcept { return *m_rows; }
    bool IsCanceled() const noexcept { return *m_isCanceled; }

 private:
    CSearchExecution(std::shared_ptr<CSessionConnection> connection, std::shared_ptr<CCancelFlag> isCanceled)
        : m_connection(std::move(connection)), m_isCanceled(std::move(isCanceled)) {}

    const std::shared_ptr<CSessionConnection> m_connection;
    const std::shared_ptr<CCancelFlag> m_isCanceled;
    std::shared_ptr<CSearchRows> m_rows;
};

class CSearchRowset final : public CRowsetObject<> {
 public:
    explicit CSearchRowset(const std::shared_ptr<CSearchExecution>& execution)
        : CRowsetObject({execution, &execution->Rows()}, [execution] { return execution->IsCanceled(); }) {}
};

}  // namespace

HRESULT CSearchDatabase::Open(std::unique_ptr<IConnection>& connection) {
    return CSearchConnection::Open(m_folder, m_options, m_clock, connection);
}

std::uint64_t CSearchDatabase::Version() const noexcept {
    const auto stamp = StampOf(FromUtf8(CIndexDatabase::FileIn(m_folder)));
    return stamp.IsOk() ? stamp.Value().device * 0x9E3779B97F4A7C15 + stamp.Value().inode : 0;
}

HRESULT CSearchSource::Initialize() {
    return AtBorder([&] {
        if (m_pool->Database().Version() == 0) {
            SetErrorInfo(L"There is no search index yet.");
            return E_FAIL;
        }
        m_isInitialized = true;
        return S_OK;
    });
}

HRESULT CSearchSource::Uninitialize() {
    m_isInitialized = false;
    return S_OK;
}

HRESULT CSearchSource::CreateSession(IUnknown* outer, const GUID& interfaceId, IUnknown** session) {
    if (!session || outer) return E_INVALIDARG;
    *session = nullptr;
    if (!m_isInitialized) return E_UNEXPECTED;
    return AtBorder([&] {
        std::unique_ptr<CPooledConnection> connection;
        const HRESULT result = m_pool->Take(connection);
        if (!Succeeded(result)) return result;
        const CComPtr<CSearchSession> created(new CSearchSession(std::move(connection)));
        return created->QueryInterface(interfaceId, reinterpret_cast<void**>(session));
    });
}

HRESULT CSearchSession::CreateCommand(IUnknown* outer, const GUID& interfaceId, IUnknown** command) {
    if (!command || outer) return E_INVALIDARG;
    return AtBorder([&] {
        const CComPtr<CSearchCommandObject> created(new CSearchCommandObject(m_connection));
        return created->QueryInterface(interfaceId, reinterpret_cast<void**>(command));
    });
}

HRESULT CSearchCommandObject::Cancel() {
    *m_isCanceled = true;
    m_connection->Cancel(*m_isCanceled);
    return S_OK;
}

HRESULT CSearchCommandObject::SetCommandText(const GUID& dialect, const wchar_t* text) {
    if (dialect != DBGUID_DEFAULT) return DB_E_DIALECTNOTSUPPORTED;
    return AtBorder([&] {
        m_text = text ? text : L"";
        return S_OK;
    });
}

HRESULT CSearchCommandObject::Execute(IUnknown* outer, const GUID& interfaceId, DBPARAMS* parameters,
                                      std::int64_t* affected, IUnknown** rowset) {
    if (!rowset || outer || parameters) return E_INVALIDARG;
    *rowset = nullptr;
    if (affected) *affected = -1;
    return AtBorder([&] {
        if (m_text.empty()) {
            SetErrorInfo(L"The command has no text.");
            return DB_E_NOCOMMAND;
        }
        return Run(interfaceId, rowset);
    });
}

HRESULT CSearchCommandObject::Run(const GUID& interfaceId, IUnknown** rowset) {
    const auto parsed = ParseSearchCommand(m_text);
    if (const auto* const error = std::get_if<CSyntaxError>(&parsed)) {
        SetErrorInfo(error->Text());
        return DB_E_ERRORSINCOMMAND;
    }
    std::shared_ptr<CSearchExecution> execution;
    const HRESULT result = CSearchExecution::Run(m_connection, m_isCanceled,
                                                 PlanSearch(std::get<CSearchCommand>(parsed)), execution);
    if (!Succeeded(result)) return result;
    const CComPtr<CSearchRowset> created(new CSearchRowset(execution));
    return created->QueryInterface(interfaceId, reinterpret_cast<void**>(rowset));
}

}  // namespace quorbel
