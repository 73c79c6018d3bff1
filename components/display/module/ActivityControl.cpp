#include "components/display/module/ActivityControl.h"

#include <exception>

#include "components/display/module/Appearance.h"
#include "platform/Program.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

enum Method : DISPID { kMessageLib = 1, kConnect = 2 };

DISPID FindMethod(std::wstring_view name) {
    if (EqualNoCase(name, L"MessageLib")) return kMessageLib;
    return EqualNoCase(name, L"Connect") ? kConnect : DISPID_UNKNOWN;
}

}  // namespace

Fl_Widget* CActivityControl::CreateWidget() {
    if (m_panel) return nullptr;
    Fl_Group::current(nullptr);
    m_panel = std::make_unique<CActivityPanel>();
    m_panel->SetReader(m_reader.get(), m_serviceName);
    return m_panel.get();
}

HRESULT CActivityControl::GetTypeInfoCount(std::uint32_t* count) {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
}

HRESULT CActivityControl::GetIDsOfNames(const GUID&, const wchar_t* const* names, std::uint32_t count,
                                        std::uint32_t, DISPID* ids) {
    if (!names || !ids) return E_POINTER;
    HRESULT result = S_OK;
    for (std::uint32_t i = 0; i < count; ++i) {
        // The first is the method; its arguments have no names.
        ids[i] = i == 0 ? FindMethod(names[i]) : DISPID_UNKNOWN;
        if (ids[i] == DISPID_UNKNOWN) result = DISP_E_UNKNOWNNAME;
    }
    return result;
}

HRESULT CActivityControl::Invoke(DISPID id, const GUID&, std::uint32_t, std::uint16_t flags,
                                 DISPPARAMS* parameters, VARIANT* result, EXCEPINFO*,
                                 std::uint32_t* wrongArgument) try {
    if (!parameters) return E_POINTER;
    if (result) *result = VARIANT();
    if ((id != kMessageLib && id != kConnect) || !(flags & DISPATCH_METHOD)) return DISP_E_MEMBERNOTFOUND;
    if (parameters->cArgs != 1 || parameters->cNamedArgs != 0) return E_INVALIDARG;
    if (parameters->rgvarg[0].vt != VT_BSTR) {
        if (wrongArgument) *wrongArgument = 0;
        return DISP_E_TYPEMISMATCH;
    }
    const std::wstring text(ToView(parameters->rgvarg[0].bstrVal));
    return id == kMessageLib ? MessageLib(text) : Connect(text);
} catch (const std::exception&) {
    return E_OUTOFMEMORY;
}

HRESULT CActivityControl::MessageLib(const std::wstring& name) {
    // A name, not a path: the module is beside the program and nowhere else.
    if (name.empty() || name.find_first_of(L"/\\") != name.npos) return E_INVALIDARG;
    const auto program = ProgramPath();
    if (!program.IsOk()) return HResultFromWin32(ToNumber(program.Error()));
    const auto module = CMessageModule::Load(program.Value().parent_path() / (ToUtf8(name) + ".dll"));
    if (!module.IsOk()) return HResultFromWin32(ToNumber(module.Error()));
    m_texts = std::make_shared<const CTraceTexts>(*module.Value());
    return S_OK;
}

HRESULT CActivityControl::Connect(const std::wstring& target) {
    // Before the colon would stand another machine's name; there are services of this one only.
    if (target.size() < 2 || target[0] != L':') return E_INVALIDARG;
    const std::wstring service = target.substr(1);
    if (m_panel) m_panel->SetReader(nullptr, {});
    m_serviceName = ToUtf8(service);
    m_reader.reset();
    auto reader = CActivityReader::Start([connect = m_services.connect, service] { return connect(service); },
                                         m_texts, m_services.startThread, SystemClock());
    if (!reader.IsOk()) return HResultFromWin32(ToNumber(reader.Error()));
    if (!CanWatch(reader.Value()->HasNews().Descriptor())) return E_FAIL;
    m_reader = std::move(reader).Value();
    if (m_panel) m_panel->SetReader(m_reader.get(), m_serviceName);
    return S_OK;
}

}  // namespace quorbel
