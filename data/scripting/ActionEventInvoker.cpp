#include "data/scripting/ActionEventInvoker.h"

#include <mutex>
#include <new>

#include "data/scripting/Engine.h"
#include "data/scripting/Exception.h"
#include "platform/Text.h"
#include "platform/fault/Faults.h"

namespace quorbel {

namespace {

constexpr DISPID kActor = 0;
constexpr DISPID kResource = 1;

HRESULT PropertyId(std::wstring_view name, DISPID& id) {
    id = name == L"Actor" ? kActor : name == L"Resource" ? kResource : DISPID_UNKNOWN;
    return id == DISPID_UNKNOWN ? DISP_E_UNKNOWNNAME : S_OK;
}

HRESULT Describe(EXCEPINFO* exception, const std::wstring& source, std::wstring_view description,
                 HRESULT result) noexcept {
    if (exception) {
        exception->bstrSource = SysAllocString(source);
        exception->bstrDescription = SysAllocString(description);
        exception->scode = result;
    }
    return DISP_E_EXCEPTION;
}

}  // namespace

/// One call of an action, with all that it is given.
struct CActionEventInvoker::CAction {
    std::wstring name;
    LibScripting::NamedArguments named;
    LibScripting::PositionalArguments positional;
    CVariant actor;
    CVariant resource;
};

HRESULT CActionEventInvoker::GetIDsOfNames(const GUID& interfaceId, const wchar_t* const* names,
                                           std::uint32_t count, DISPID* ids) noexcept try {
    if (interfaceId != IID_NULL && interfaceId != kScriptProperties) return E_NOINTERFACE;
    if (count != 0 && (!names || !ids)) return E_POINTER;
    HRESULT result = S_OK;
    for (std::uint32_t index = 0; index != count; ++index) {
        const std::wstring_view name = names[index] ? names[index] : L"";
        if (interfaceId == IID_NULL) {
            ids[index] = IdOf(name);
        } else if (const HRESULT unknown = PropertyId(name, ids[index]); !Succeeded(unknown)) {
            result = unknown;
        }
    }
    return result;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

DISPID CActionEventInvoker::IdOf(std::wstring_view name) {
    const std::lock_guard lock(m_lock);
    if (const auto found = m_ids.find(name); found != m_ids.end()) return found->second;
    m_names.insert_or_assign(m_nextId, std::wstring(name));
    m_ids.emplace(name, m_nextId);
    return m_nextId++;
}

HRESULT CActionEventInvoker::Invoke(DISPID id, const GUID& interfaceId, const DISPPARAMS* parameters,
                                    VARIANT* result, EXCEPINFO* exception,
                                    std::uint32_t* wrongArgument) noexcept try {
    if (interfaceId == kScriptProperties) return SetProperty(id, parameters);
    if (interfaceId != IID_NULL) return E_NOINTERFACE;
    static constexpr DISPPARAMS kNone{};
    if (!parameters) parameters = &kNone;
    CAction action;
    const HRESULT made = MakeAction(id, *parameters, action, wrongArgument);
    return Succeeded(made) ? Return(action, result, exception) : made;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CActionEventInvoker::SetProperty(DISPID id, const DISPPARAMS* parameters) {
    if (id != kActor && id != kResource) return DISP_E_MEMBERNOTFOUND;
    if (!parameters || parameters->cArgs == 0) return E_INVALIDARG;
    // The value that was there is released after the lock.
    CVariant value(parameters->rgvarg[parameters->cArgs - 1]);
    const std::lock_guard lock(m_lock);
    std::swap(id == kActor ? m_actor : m_resource, value);
    return S_OK;
}

HRESULT CActionEventInvoker::MakeAction(DISPID id, const DISPPARAMS& parameters, CAction& action,
                                        std::uint32_t* wrongArgument) {
    const std::uint32_t namedCount = parameters.cNamedArgs;
    if (namedCount > parameters.cArgs) return E_INVALIDARG;
    const std::lock_guard lock(m_lock);
    const auto name = m_names.find(id);
    if (name == m_names.end()) return DISP_E_UNKNOWNNAME;
    action.name = name->second;
    for (std::uint32_t index = 0; index != namedCount; ++index) {
        const auto argument = m_names.find(parameters.rgdispidNamedArgs[index]);
        if (argument == m_names.end()) {
            if (wrongArgument) *wrongArgument = index;
            return DISP_E_UNKNOWNNAME;
        }
        action.named.emplace(argument->second, CVariant(parameters.rgvarg[index]));
    }
    for (std::uint32_t index = parameters.cArgs; index-- != namedCount;) {
        action.positional.emplace_back(CVariant(parameters.rgvarg[index]));
    }
    action.actor = m_actor;
    action.resource = m_resource;
    return S_OK;
}

CVariant CActionEventInvoker::Perform(CAction& action) {
    const HRESULT converted = VariantChangeType(action.actor, action.actor, VT_BSTR);
    if (!Succeeded(converted)) return CVariant::FromError(converted);
    const auto engine = LibScripting::FindEngine(action.actor.Text());
    if (!engine.IsOk()) return CVariant::FromError(HResultFromWin32(ToNumber(engine.Error())));
    CVariant value;
    engine.Value()->Execute(value, action.resource, action.name, action.named, action.positional);
    return value;
}

HRESULT CActionEventInvoker::Return(CAction& action, VARIANT* result, EXCEPINFO* exception) noexcept try {
    const CFaultScope scope;
    CVariant value = Perform(action);
    if (value.vt == VT_ERROR) return value.scode;
    if (!result) return E_POINTER;
    VariantClear(*result);
    value.Detach(*result);
    return S_OK;
} catch (const LibScripting::exception& failure) {
    return Describe(exception, action.name, FromUtf8(failure.what()), failure.Result());
} catch (const std::exception& failure) {
    return Describe(exception, action.name, FromUtf8(failure.what()), E_FAIL);
} catch (...) {
    TakeCaughtFault();
    return Describe(exception, action.name, L"Unknown exception occurred", E_UNEXPECTED);
}

}  // namespace quorbel
