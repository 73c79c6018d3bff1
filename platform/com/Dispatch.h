#pragma once

#include <string>

#include "platform/com/Variant.h"

namespace quorbel {

using DISPID = std::int32_t;
inline constexpr DISPID DISPID_UNKNOWN = -1;
inline constexpr std::uint16_t DISPATCH_METHOD = 1;
inline constexpr std::uint16_t DISPATCH_PROPERTYPUT = 4;
inline constexpr GUID IID_NULL{};

/// The arguments of a call, last one first: the named ones, then the positional ones.
struct DISPPARAMS {
    VARIANT* rgvarg;
    DISPID* rgdispidNamedArgs;
    std::uint32_t cArgs;  ///< all of them
    std::uint32_t cNamedArgs;
};

/// What went wrong in a call that returned DISP_E_EXCEPTION. The caller owns the texts (SysFreeString).
struct EXCEPINFO {
    BSTR bstrSource = nullptr;
    BSTR bstrDescription = nullptr;
    HRESULT scode = S_OK;
};

/// Calls by name.
class IDispatch : public IUnknown {
 public:
    static constexpr GUID kId{0x00020400, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    virtual HRESULT GetTypeInfoCount(std::uint32_t* count) = 0;
    virtual HRESULT GetTypeInfo(std::uint32_t index, std::uint32_t locale, IUnknown** info) = 0;
    virtual HRESULT GetIDsOfNames(const GUID& interfaceId, const wchar_t* const* names, std::uint32_t count,
                                  std::uint32_t locale, DISPID* ids) = 0;
    /// `result` and `exception` may be null.
    virtual HRESULT Invoke(DISPID id, const GUID& interfaceId, std::uint32_t locale, std::uint16_t flags,
                           DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                           std::uint32_t* wrongArgument) = 0;

 protected:
    ~IDispatch() = default;
};

/// The answer of an object whose interface derives from IDispatch but that nobody calls by name.
template <class Object>
class CWithoutDispatch : public Object {
 public:
    using Object::Object;
    HRESULT GetTypeInfoCount(std::uint32_t*) override { return E_NOTIMPL; }
    HRESULT GetTypeInfo(std::uint32_t, std::uint32_t, IUnknown**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(const GUID&, const wchar_t* const*, std::uint32_t, std::uint32_t,
                          DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT Invoke(DISPID, const GUID&, std::uint32_t, std::uint16_t, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                   std::uint32_t*) override {
        return E_NOTIMPL;
    }
};

/// Where an object calls those who asked to be called.
class IConnectionPoint : public IUnknown {
 public:
    static constexpr GUID kId{0xB196B286, 0xBAB4, 0x101A, {0xB6, 0x9C, 0, 0xAA, 0, 0x34, 0x1D, 0x07}};
    /// Holds `sink` until Unadvise. CONNECT_E_ADVISELIMIT when there is one already.
    virtual HRESULT Advise(IUnknown* sink, std::uint32_t* cookie) = 0;
    virtual HRESULT Unadvise(std::uint32_t cookie) = 0;
};

class IConnectionPointContainer : public IUnknown {
 public:
    static constexpr GUID kId{0xB196B284, 0xBAB4, 0x101A, {0xB6, 0x9C, 0, 0xAA, 0, 0x34, 0x1D, 0x07}};
    /// CONNECT_E_NOCONNECTION when the object calls no such interface.
    virtual HRESULT FindConnectionPoint(const GUID& interfaceId, IConnectionPoint** point) = 0;
};

}  // namespace quorbel
