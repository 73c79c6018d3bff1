#include "data/consumer/ParameterAccessor.h"

#include <cstring>
#include <unordered_map>

#include "data/consumer/Alignment.h"

namespace quorbel {

namespace {

/// Finds the reported parameters one after another: they stand in the order of the declared ones, as a rule.
class CReportedParameters {
 public:
    explicit CReportedParameters(std::span<const DBPARAMINFO> reported) : m_reported(reported) {}

    const DBPARAMINFO* Find(std::size_t place, const std::wstring& name) {
        if (place < m_reported.size() && IsNamed(m_reported[place], name)) return &m_reported[place];
        if (m_byName.empty()) {
            for (const DBPARAMINFO& info : m_reported) {
                if (info.pwszName) m_byName.emplace(info.pwszName, &info);
            }
        }
        const auto found = m_byName.find(name);
        return found == m_byName.end() ? nullptr : found->second;
    }

 private:
    static bool IsNamed(const DBPARAMINFO& info, const std::wstring& name) {
        return info.pwszName && name == info.pwszName;
    }

    const std::span<const DBPARAMINFO> m_reported;
    std::unordered_map<std::wstring, const DBPARAMINFO*> m_byName;
};

}  // namespace

CParameterAccessor::~CParameterAccessor() {
    if (m_accessor) Ignore(m_accessor->ReleaseAccessor(m_parameters.hAccessor, nullptr));
}

HRESULT CParameterAccessor::Bind(ICommandWithParameters& command,
                                 std::span<const CHTMLDataSource::CParameter> parameters,
                                 const CAccessorBuffer& sizes) {
    std::size_t count = 0;
    DBPARAMINFO* reported = nullptr;
    HRESULT result = command.GetParameterInfo(&count, &reported);
    const std::unique_ptr<DBPARAMINFO, decltype(&CoTaskMemFree)> owner(reported, CoTaskMemFree);
    if (!Succeeded(result)) return result;
    result = AddBindings(parameters, {reported, count}, sizes);
    if (!Succeeded(result)) return result;
    Fill(parameters);
    CComPtr<IAccessor> accessor;
    result = command.QueryInterface(IAccessor::kId, accessor.ReceiveVoid());
    if (!Succeeded(result)) return result;
    result = accessor->CreateAccessor(DBACCESSOR_PARAMETERDATA, m_bindings.size(), m_bindings.data(), m_size,
                                      &m_parameters.hAccessor, nullptr);
    if (Succeeded(result)) m_accessor = std::move(accessor);
    return result;
}

HRESULT CParameterAccessor::AddBindings(std::span<const CHTMLDataSource::CParameter> parameters,
                                        std::span<const DBPARAMINFO> reported, const CAccessorBuffer& sizes) {
    CReportedParameters byName(reported);
    m_bindings.reserve(parameters.size());
    for (std::size_t place = 0; place != parameters.size(); ++place) {
        const DBPARAMINFO* const info = byName.Find(place, parameters[place].name);
        if (!info) return E_FAIL;
        const bool isText = parameters[place].value.vt == VT_BSTR;
        DBBINDING binding{};
        binding.iOrdinal = info->iOrdinal;
        binding.dwPart = DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS;
        binding.eParamIO = DBPARAMIO_INPUT;
        binding.wType = isText ? DBTYPE_BSTR : DBTYPE_VARIANT;
        binding.cbMaxLen = sizes.ParameterSize(*info);
        if (binding.cbMaxLen < (isText ? sizeof(BSTR) : sizeof(VARIANT))) return E_FAIL;
        binding.obValue = m_size;
        binding.obLength = Align(binding.obValue + binding.cbMaxLen);
        binding.obStatus = binding.obLength + sizeof(std::size_t);
        m_size = Align(binding.obStatus + sizeof(DBSTATUS));
        m_bindings.push_back(binding);
    }
    return S_OK;
}

void CParameterAccessor::Fill(std::span<const CHTMLDataSource::CParameter> parameters) {
    m_buffer = std::make_unique<std::byte[]>(m_size);
    m_parameters.pData = m_buffer.get();
    for (std::size_t place = 0; place != parameters.size(); ++place) {
        const DBBINDING& binding = m_bindings[place];
        const VARIANT& value = parameters[place].value;
        const bool isText = binding.wType == DBTYPE_BSTR;
        const void* const bytes = isText ? static_cast<const void*>(&value.bstrVal) : &value;
        const std::size_t size = isText ? sizeof(BSTR) : sizeof(VARIANT);
        std::memcpy(m_buffer.get() + binding.obValue, bytes, size);
        std::memcpy(m_buffer.get() + binding.obLength, &size, sizeof size);
    }
}

}  // namespace quorbel
