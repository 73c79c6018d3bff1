#include "components/provider/ProviderCommand.h"

#include <cstring>

#include "components/oledb/ComBorder.h"
#include "components/provider/ProviderRowset.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

constexpr std::size_t kNowhere = ~std::size_t{0};

template <class T>
T Load(const std::byte* at) noexcept {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

CVariant ArgumentAt(const DBBINDING& binding, const std::byte* row) {
    const bool isNull =
        (binding.dwPart & DBPART_STATUS) != 0 && Load<DBSTATUS>(row + binding.obStatus) == DBSTATUS_S_ISNULL;
    if (isNull || (binding.dwPart & DBPART_VALUE) == 0) return CVariant::Null();
    const std::byte* const at = row + binding.obValue;
    if (binding.wType == DBTYPE_BSTR) return CVariant(ToView(Load<BSTR>(at)));
    return CVariant(Load<VARIANT>(at));
}

}  // namespace

CProviderCommand::CProviderCommand(std::shared_ptr<CSqlSession> connection)
    : m_connection(std::move(connection)),
      m_point(new CSinkPoint),
      m_isCanceled(std::make_shared<CCancelFlag>(false)) {}

HRESULT CProviderCommand::Cancel() {
    *m_isCanceled = true;
    m_connection->Cancel(*m_isCanceled);
    return S_OK;
}

HRESULT CProviderCommand::Execute(IUnknown* outer, const GUID& interfaceId, DBPARAMS* parameters,
                                  std::int64_t* affected, IUnknown** rowset) {
    if (!rowset || outer || (parameters && parameters->cParamSets != 1)) return E_INVALIDARG;
    *rowset = nullptr;
    if (affected) *affected = -1;
    if (m_text.empty()) {
        SetErrorInfo(L"The command has no text.");
        return DB_E_NOCOMMAND;
    }
    return AtBorder([&] { return Run(interfaceId, parameters, rowset); });
}

HRESULT CProviderCommand::Run(const GUID& interfaceId, DBPARAMS* parameters, IUnknown** rowset) {
    std::shared_ptr<const CSqlCommand> command;
    HRESULT result = m_connection->Parse(m_text, command);
    if (!Succeeded(result)) return result;
    std::vector<CSqlArgument> arguments;
    result = ReadArguments(parameters, arguments);
    if (!Succeeded(result)) return result;
    std::unique_ptr<CExecution> execution;
    result = CExecution::Run(m_connection, m_isCanceled, m_point, *command, arguments, execution);
    if (!Succeeded(result)) return result;
    const CComPtr<CProviderRowset> created(new CProviderRowset(std::move(execution)));
    return created->QueryInterface(interfaceId, reinterpret_cast<void**>(rowset));
}

HRESULT CProviderCommand::ReadArguments(const DBPARAMS* parameters,
                                        std::vector<CSqlArgument>& arguments) const {
    arguments.reserve(m_parameters.size());
    for (const CParameter& parameter : m_parameters) arguments.push_back({parameter.name, CVariant::Null()});
    if (!parameters) return S_OK;
    const auto* const bindings = m_accessors.Find(parameters->hAccessor);
    if (!bindings) return DB_E_BADACCESSORHANDLE;
    const auto* const row = static_cast<const std::byte*>(parameters->pData);
    for (const DBBINDING& binding : *bindings) {
        const bool isKnown =
            binding.iOrdinal < m_byOrdinal.size() && m_byOrdinal[binding.iOrdinal] != kNowhere;
        if (!isKnown) return DB_E_PARAMUNAVAILABLE;
        arguments[m_byOrdinal[binding.iOrdinal]].value = ArgumentAt(binding, row);
    }
    return S_OK;
}

HRESULT CProviderCommand::SetCommandText(const GUID& dialect, const wchar_t* text) {
    if (dialect != DBGUID_DEFAULT) return DB_E_DIALECTNOTSUPPORTED;
    return AtBorder([&] {
        m_text = text ? text : L"";
        return S_OK;
    });
}

HRESULT CProviderCommand::GetParameterInfo(std::size_t* count, DBPARAMINFO** info) {
    if (!count || !info) return E_INVALIDARG;
    *count = m_parameters.size();
    *info = nullptr;
    if (m_parameters.empty()) return S_OK;
    std::size_t characters = 0;
    for (const CParameter& parameter : m_parameters) characters += parameter.name.size() + 1;
    const std::size_t head = m_parameters.size() * sizeof(DBPARAMINFO);
    auto* const block = static_cast<DBPARAMINFO*>(CoTaskMemAlloc(head + characters * sizeof(wchar_t)));
    if (!block) return E_OUTOFMEMORY;
    auto* name = reinterpret_cast<wchar_t*>(block + m_parameters.size());
    DBPARAMINFO* entry = block;
    for (const CParameter& parameter : m_parameters) {
        *entry++ = {parameter.flags, parameter.ordinal,   name,           parameter.size,
                    parameter.type,  parameter.precision, parameter.scale};
        name[parameter.name.copy(name, parameter.name.size())] = L'\0';
        name += parameter.name.size() + 1;
    }
    *info = block;
    return S_OK;
}

HRESULT CProviderCommand::SetParameterInfo(std::size_t count, const std::size_t* ordinals,
                                           const DBPARAMBINDINFO* info) {
    if (count != 0 && (!ordinals || !info)) return E_INVALIDARG;
    return AtBorder([&] {
        std::vector<CParameter> parameters;
        std::vector<std::size_t> byOrdinal(count + 1, kNowhere);
        for (std::size_t index = 0; index != count; ++index) {
            const std::size_t ordinal = ordinals[index];
            if (ordinal == 0 || ordinal > count || byOrdinal[ordinal] != kNowhere) return E_INVALIDARG;
            byOrdinal[ordinal] = index;
            const DBPARAMBINDINFO& from = info[index];
            const bool isText = std::wstring_view(from.pwszDataSourceType ? from.pwszDataSourceType : L"") ==
                                L"DBTYPE_WVARCHAR";
            parameters.push_back({ordinal, from.pwszName ? from.pwszName : L"",
                                  isText ? DBTYPE_WSTR : DBTYPE_VARIANT, from.ulParamSize, from.dwFlags,
                                  from.bPrecision, from.bScale});
        }
        m_parameters = std::move(parameters);
        m_byOrdinal = std::move(byOrdinal);
        return S_OK;
    });
}

HRESULT CProviderCommand::CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                                         std::size_t, HACCESSOR* accessor, DBSTATUS* statuses) {
    return AtBorder([&] { return m_accessors.Create(flags, count, bindings, accessor, statuses); });
}

HRESULT CProviderCommand::ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references) {
    return m_accessors.Release(accessor, references);
}

HRESULT CProviderCommand::FindConnectionPoint(const GUID& interfaceId, IConnectionPoint** point) {
    if (!point) return E_POINTER;
    *point = nullptr;
    if (interfaceId != IDispatch::kId) return CONNECT_E_NOCONNECTION;
    *point = CComPtr<CSinkPoint>(m_point).Detach();
    return S_OK;
}

}  // namespace quorbel
