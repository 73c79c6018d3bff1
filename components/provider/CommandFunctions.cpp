#include "components/provider/CommandFunctions.h"

#include <algorithm>
#include <mutex>

#include "platform/Text.h"
#include "platform/com/ErrorInfo.h"

namespace quorbel {

namespace {

constexpr DISPID kPropertyPut = -3;  ///< the name of a property's new value
/// What belongs to the connection, the length and the form of the answer.
constexpr std::wstring_view kRefusedNames[] = {L"Content-Length", L"Content-Type", L"Transfer-Encoding",
                                               L"Connection",     L"Keep-Alive",   L"Trailer",
                                               L"Upgrade"};
constexpr std::size_t kMostHeaderBytes = 64 * 1024;

/// RFC 9110, section 5.6.2.
bool IsToken(std::wstring_view text) noexcept {
    constexpr std::wstring_view kMarks = L"!#$%&'*+-.^_`|~";
    return !text.empty() && std::ranges::all_of(text, [&](wchar_t character) {
        return (character >= L'a' && character <= L'z') || (character >= L'A' && character <= L'Z') ||
               (character >= L'0' && character <= L'9') || kMarks.find(character) != kMarks.npos;
    });
}

bool IsControl(wchar_t character) noexcept {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

HRESULT Refuse(std::wstring description) {
    SetErrorInfo(std::move(description));
    return E_INVALIDARG;
}

HRESULT WithoutSink() {
    SetErrorInfo(L"The command runs without a service for script actions.");
    return E_FAIL;
}

/// What a call of the sink that failed has to say. Takes its texts over.
HRESULT Failure(std::wstring_view what, HRESULT result, EXCEPINFO& exception) {
    std::wstring description(ToView(exception.bstrDescription));
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    const bool hasOwnCode = result == DISP_E_EXCEPTION && !Succeeded(exception.scode);
    const HRESULT failure = hasOwnCode ? exception.scode : result;
    if (description.empty()) {
        description = L"\"" + std::wstring(what) + L"\" failed with 0x" +
                      ToHex(static_cast<std::uint32_t>(failure), 8) + L". " + HResultMessage(failure);
    }
    SetErrorInfo(std::move(description));
    return failure;
}

}  // namespace

HRESULT CSinkPoint::Advise(IUnknown* sink, std::uint32_t* cookie) {
    if (!sink || !cookie) return E_POINTER;
    CComPtr<IDispatch> dispatch;
    const HRESULT result = sink->QueryInterface(IDispatch::kId, dispatch.ReceiveVoid());
    if (!Succeeded(result)) return result;
    const std::lock_guard guard(m_lock);
    if (m_sink) return CONNECT_E_ADVISELIMIT;
    m_sink = std::move(dispatch);
    *cookie = ++m_cookie;
    return S_OK;
}

HRESULT CSinkPoint::Unadvise(std::uint32_t cookie) {
    CComPtr<IDispatch> released;  // without the lock
    const std::lock_guard guard(m_lock);
    if (!m_sink || cookie != m_cookie) return CONNECT_E_NOCONNECTION;
    released = std::move(m_sink);
    return S_OK;
}

CComPtr<IDispatch> CSinkPoint::Sink() const {
    const std::lock_guard guard(m_lock);
    return m_sink;
}

HRESULT CCommandFunctions::SetProvenance(std::wstring_view provenance) {
    m_provenance = CVariant(provenance);
    return S_OK;
}

HRESULT CCommandFunctions::AddHeader(std::wstring_view field) {
    const std::size_t colon = field.find(L':');
    const std::wstring_view name = Trim(field.substr(0, colon));
    if (colon == field.npos || !IsToken(name)) return Refuse(L"A header is written \"Name: value\".");
    if (std::ranges::any_of(field, IsControl)) return Refuse(L"A header holds no control characters.");
    const bool isRefused = std::ranges::any_of(
        kRefusedNames, [&](std::wstring_view refused) { return EqualNoCase(name, refused); });
    if (isRefused) return Refuse(L"The header " + std::wstring(name) + L" is not a command's to set.");
    const std::size_t bytes = ToUtf8(field).size();
    if (bytes > kMostHeaderBytes - m_headerBytes) return Refuse(L"The headers of a command are too long.");
    m_headers.emplace_back(field);
    m_headerBytes += bytes;
    return S_OK;
}

HRESULT CCommandFunctions::SetScriptLibrary(std::wstring_view path) {
    return SetProperty(L"Actor", CVariant(path));
}

HRESULT CCommandFunctions::SetScriptResource(const VARIANT& resource) {
    return SetProperty(L"Resource", resource);
}

HRESULT CCommandFunctions::RunScriptAction(std::wstring_view name, std::span<const CVariant> arguments,
                                           CVariant& result) {
    const CComPtr<IDispatch> sink = m_point->Sink();
    if (!sink) return WithoutSink();
    const std::wstring terminated(name);
    const wchar_t* const names[] = {terminated.c_str()};
    DISPID id = DISPID_UNKNOWN;
    EXCEPINFO exception;
    HRESULT called = sink->GetIDsOfNames(IID_NULL, names, 1, 0, &id);
    if (!Succeeded(called)) return Failure(name, called, exception);
    std::vector<VARIANT> values(arguments.rbegin(), arguments.rend());  // borrowed, last one first
    DISPPARAMS parameters{values.data(), nullptr, static_cast<std::uint32_t>(values.size()), 0};
    called =
        sink->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &parameters, result.Receive(), &exception, nullptr);
    return Succeeded(called) ? S_OK : Failure(name, called, exception);
}

HRESULT CCommandFunctions::SetProperty(const wchar_t* name, const VARIANT& value) {
    const CComPtr<IDispatch> sink = m_point->Sink();
    if (!sink) return WithoutSink();
    DISPID id = DISPID_UNKNOWN;
    EXCEPINFO exception;
    HRESULT called = sink->GetIDsOfNames(kScriptProperties, &name, 1, 0, &id);
    if (!Succeeded(called)) return Failure(name, called, exception);
    VARIANT borrowed = value;
    DISPID put = kPropertyPut;
    DISPPARAMS parameters{&borrowed, &put, 1, 1};
    called = sink->Invoke(id, kScriptProperties, 0, DISPATCH_PROPERTYPUT, &parameters, nullptr, &exception,
                          nullptr);
    return Succeeded(called) ? S_OK : Failure(name, called, exception);
}

}  // namespace quorbel
