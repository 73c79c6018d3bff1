#include "data/consumer/DataSource.h"

#include <mutex>

#include "data/consumer/ParameterAccessor.h"
#include "platform/com/ClassRegistry.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

/// Which data source executes or fetches on this thread.
thread_local const CHTMLDataSource* t_current = nullptr;

template <class Interface>
IUnknown** Receive(CComPtr<Interface>& object) {
    return reinterpret_cast<IUnknown**>(object.Receive());
}

}  // namespace

/// A data source's entry for the calling thread; there is one at a time.
class CHTMLDataSource::CRegistration {
 public:
    explicit CRegistration(const CHTMLDataSource& source) : m_isFirst(!t_current) {
        if (m_isFirst) t_current = &source;
    }
    ~CRegistration() {
        if (m_isFirst) t_current = nullptr;
    }
    CRegistration(const CRegistration&) = delete;
    CRegistration& operator=(const CRegistration&) = delete;
    bool IsFirst() const noexcept { return m_isFirst; }

 private:
    const bool m_isFirst;
};

CHTMLDataSource::CHTMLDataSource(Rendering rendering) : m_rendering(std::move(rendering)) {}

CHTMLDataSource::~CHTMLDataSource() {
    Ignore(Close());
}

HRESULT CHTMLDataSource::Open(const std::wstring& initialisation) {
    Ignore(Close());
    return CreateSession(initialisation);
}

HRESULT CHTMLDataSource::CreateSession(const std::wstring& initialisation) {
    CComPtr<IDataInitialize> service;
    HRESULT result = CreateComInstance(kDataInitializeClass, service);
    if (!Succeeded(result)) return result;
    result =
        service->GetDataSource(nullptr, 0, initialisation.c_str(), IDBInitialize::kId, Receive(m_source));
    if (!Succeeded(result)) return result;
    result = m_source->Initialize();
    if (!Succeeded(result)) return result;
    CComPtr<IDBCreateSession> sessions;
    result = m_source.QueryInterface(sessions);
    if (!Succeeded(result)) return result;
    return sessions->CreateSession(nullptr, IOpenRowset::kId, Receive(m_session));
}

HRESULT CHTMLDataSource::Execute(const std::wstring& text, const GUID& interfaceId, IUnknown** result) {
    if (result) *result = nullptr;
    m_columns.clear();
    m_columnsByName.clear();
    const CRegistration registration(*this);
    if (!registration.IsFirst()) return DB_E_NOTREENTRANT;
    if (!m_session) return E_UNEXPECTED;
    if (text.find(L'\0') != text.npos) {
        SetErrorInfo(L"The command holds a zero character.");
        return DB_E_ERRORSINCOMMAND;
    }
    CloseRowset();
    try {
        HRESULT code = Prepare(text);
        if (Succeeded(code)) code = Run(interfaceId, result);
        if (!Succeeded(code)) CloseCommand();
        return code;
    } catch (const std::bad_alloc&) {
        CloseCommand();
        return E_OUTOFMEMORY;
    }
}

HRESULT CHTMLDataSource::Prepare(const std::wstring& text) {
    CComPtr<IDBCreateCommand> commands;
    HRESULT result = m_session.QueryInterface(commands);
    if (!Succeeded(result)) return result;
    CComPtr<ICommand> command;
    result = commands->CreateCommand(nullptr, ICommand::kId, Receive(command));
    if (!Succeeded(result)) return result;
    CComPtr<ICommandText> commandText;
    result = command.QueryInterface(commandText);
    if (!Succeeded(result)) return result;
    result = commandText->SetCommandText(DBGUID_DEFAULT, text.c_str());
    if (!Succeeded(result)) return result;
    result = SetCommand(std::move(command));
    return Succeeded(result) ? TakeActions() : result;
}

HRESULT CHTMLDataSource::TakeActions() {
    if (!m_actions) {
        m_actions = CComPtr<CDataAccessor::CActionEventHandler>(
            new CDataAccessor::CActionEventHandler(std::make_shared<CActionEventInvoker>()));
    }
    const HRESULT result = m_actions->Advise(*m_command.Get());
    const bool asksForNone = result == E_NOINTERFACE || result == CONNECT_E_NOCONNECTION;
    return asksForNone ? S_OK : result;
}

HRESULT CHTMLDataSource::SetCommand(CComPtr<ICommand> command) {
    const std::lock_guard lock(m_commandLock);
    m_command = std::move(command);
    return m_isCancelled ? DB_E_CANCELED : S_OK;
}

void CHTMLDataSource::ReleaseCommand() noexcept {
    if (m_actions) m_actions->Unadvise();
    CComPtr<ICommand> command;
    const std::lock_guard lock(m_commandLock);
    std::swap(command, m_command);
}

HRESULT CHTMLDataSource::Run(const GUID& interfaceId, IUnknown** result) {
    CParameterAccessor parameters;
    if (!m_parameters.empty()) {
        CComPtr<ICommandWithParameters> command;
        HRESULT code = m_command.QueryInterface(command);
        if (Succeeded(code)) code = DeclareParameters(*command.Get());
        if (Succeeded(code)) code = parameters.Bind(*command.Get(), m_parameters, *this);
        if (!Succeeded(code)) return code;
    }
    HRESULT code =
        m_command->Execute(nullptr, IRowset::kId, m_parameters.empty() ? nullptr : parameters.Parameters(),
                           nullptr, Receive(m_rowset));
    if (Succeeded(code)) code = ReadColumns();
    if (!Succeeded(code)) return code;
    // What is no such object has no such values.
    if (result) Ignore(m_rowset->QueryInterface(interfaceId, reinterpret_cast<void**>(result)));
    return S_OK;
}

HRESULT CHTMLDataSource::DeclareParameters(ICommandWithParameters& command) const {
    std::vector<std::size_t> ordinals(m_parameters.size());
    std::vector<DBPARAMBINDINFO> declarations(m_parameters.size());
    for (std::size_t place = 0; place != m_parameters.size(); ++place) {
        const CParameter& parameter = m_parameters[place];
        ordinals[place] = place + 1;
        declarations[place] =
            parameter.value.vt == VT_BSTR
                ? DBPARAMBINDINFO{L"DBTYPE_WVARCHAR", parameter.name.c_str(), sizeof(BSTR), 0, 255, 255}
                : DBPARAMBINDINFO{nullptr, parameter.name.c_str(), 0, 0, 0, 0};
    }
    return command.SetParameterInfo(ordinals.size(), ordinals.data(), declarations.data());
}

HRESULT CHTMLDataSource::ReadColumns() {
    CComPtr<IColumnsInfo> columns;
    HRESULT result = m_rowset.QueryInterface(columns);
    if (!Succeeded(result)) return result;
    std::size_t count = 0;
    DBCOLUMNINFO* info = nullptr;
    wchar_t* names = nullptr;
    result = columns->GetColumnInfo(&count, &info, &names);
    const std::unique_ptr<DBCOLUMNINFO, decltype(&CoTaskMemFree)> infoOwner(info, CoTaskMemFree);
    const std::unique_ptr<wchar_t, decltype(&CoTaskMemFree)> namesOwner(names, CoTaskMemFree);
    if (!Succeeded(result)) return result;
    m_columns.reserve(count);
    for (std::size_t place = 0; place != count; ++place) {
        const wchar_t* const name = info[place].pwszName;
        m_columns.push_back({name ? name : L"", info[place]});
        m_columnsByName.emplace(m_columns.back().name, place);
    }
    return S_OK;
}

HRESULT CHTMLDataSource::Fetch(const std::function<HRESULT()>& render) {
    const CRegistration registration(*this);
    if (!registration.IsFirst()) return DB_E_NOTREENTRANT;
    const std::lock_guard lock(m_fetching);
    if (!m_rowset) return E_UNEXPECTED;
    try {
        HRESULT result = BindRow();
        do {
            if (Succeeded(result)) result = NextRow();
            if (result == S_OK) result = ApplyFilter();
        } while (result == S_FALSE);
        if (result == S_OK) result = render();
        m_row.ReleaseValues();
        return result;
    } catch (const std::bad_alloc&) {
        m_row.ReleaseValues();
        return E_OUTOFMEMORY;
    }
}

HRESULT CHTMLDataSource::BindRow() {
    if (m_row.IsBound()) return S_OK;
    CComPtr<IAccessor> accessor;
    const HRESULT result = m_rowset.QueryInterface(accessor);
    if (!Succeeded(result)) return result;
    return m_row.Bind(std::move(accessor), m_columns, m_form, m_rendering.typing);
}

HRESULT CHTMLDataSource::NextRow() {
    if (!std::exchange(m_hasFetched, true)) {
        const HRESULT result = m_rowset->RestartPosition(0);
        if (!Succeeded(result)) return result;
    }
    ReleaseRow();
    std::size_t obtained = 0;
    HROW* const place = &m_rowHandle;
    HRESULT result = m_rowset->GetNextRows(0, 0, 1, &obtained, const_cast<HROW**>(&place));
    if (!Succeeded(result)) return result;
    if (obtained == 0) return DB_S_ENDOFROWSET;
    m_hasRow = true;
    result = m_row.GetData(*m_rowset.Get(), m_rowHandle);
    return Succeeded(result) ? S_OK : result;
}

HRESULT CHTMLDataSource::ApplyFilter() {
    if (!m_rendering.filter) return S_OK;
    return m_rendering.filter([this](std::size_t ordinal) -> const wchar_t* {
        const std::size_t column = FindColumn(ordinal);
        if (column == kNoColumn) return nullptr;
        const std::wstring_view text = m_row.Text(column);
        return text.data() ? text.data() : L"";
    });
}

void CHTMLDataSource::ReleaseRow() noexcept {
    if (!std::exchange(m_hasRow, false)) return;
    Ignore(m_rowset->ReleaseRows(1, &m_rowHandle, nullptr, nullptr, nullptr));
}

void CHTMLDataSource::CloseRowset() noexcept {
    const std::lock_guard lock(m_fetching);
    m_row.ReleaseValues();
    ReleaseRow();
    m_row.Release();
    m_rowset = nullptr;
    m_hasFetched = false;
}

void CHTMLDataSource::CloseCommand() noexcept {
    CloseRowset();
    ReleaseCommand();
}

HRESULT CHTMLDataSource::Close() {
    CloseCommand();
    m_session = nullptr;
    m_source = nullptr;
    return S_OK;
}

void CHTMLDataSource::Cancel() noexcept {
    CComPtr<ICommand> command;
    {
        const std::lock_guard lock(m_commandLock);
        m_isCancelled = true;
        command = m_command;
    }
    if (command) Ignore(command->Cancel());
}

std::size_t CHTMLDataSource::FindColumn(std::size_t ordinal) const noexcept {
    // Ordinals count from 1, and a bookmark comes first, as a rule.
    for (const std::size_t place : {ordinal - 1, ordinal}) {
        if (place < m_columns.size() && m_columns[place].info.iOrdinal == ordinal) return place;
    }
    const auto found =
        std::ranges::find(m_columns, ordinal, [](const CColumn& column) { return column.info.iOrdinal; });
    return found == m_columns.end() ? kNoColumn : static_cast<std::size_t>(found - m_columns.begin());
}

std::size_t CHTMLDataSource::FindColumn(const std::wstring& name) const {
    const auto found = m_columnsByName.find(name);
    return found == m_columnsByName.end() ? kNoColumn : found->second;
}

std::wstring_view CHTMLDataSource::ShownText(std::size_t column) {
    const std::wstring_view text = m_row.Text(column);
    if (!m_rendering.formatter) return text;
    m_shown = m_rendering.formatter(m_columns[column].info.iOrdinal, text);
    return m_shown;
}

}  // namespace quorbel
