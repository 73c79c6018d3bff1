#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/com/Com.h"

namespace quorbel {

/// A COM text: characters with a terminating zero, of a length known without it, so that it may hold zeros.
/// Null is the empty text.
using BSTR = wchar_t*;

/// Null when memory is short.
BSTR SysAllocStringLen(const wchar_t* text, std::size_t length) noexcept;
inline BSTR SysAllocString(std::wstring_view text) noexcept {
    return SysAllocStringLen(text.data(), text.size());
}
void SysFreeString(BSTR text) noexcept;
/// Characters, without the terminating zero.
std::size_t SysStringLen(const wchar_t* text) noexcept;
inline std::wstring_view ToView(const wchar_t* text) noexcept {
    return text ? std::wstring_view(text, SysStringLen(text)) : std::wstring_view();
}

/// Memory that one component allocates and another one frees. Null when memory is short.
void* CoTaskMemAlloc(std::size_t bytes) noexcept;
void CoTaskMemFree(void* memory) noexcept;

using VARTYPE = std::uint16_t;
inline constexpr VARTYPE VT_EMPTY = 0;
inline constexpr VARTYPE VT_NULL = 1;
inline constexpr VARTYPE VT_I2 = 2;
inline constexpr VARTYPE VT_I4 = 3;
inline constexpr VARTYPE VT_R4 = 4;
inline constexpr VARTYPE VT_R8 = 5;
inline constexpr VARTYPE VT_BSTR = 8;
inline constexpr VARTYPE VT_DISPATCH = 9;
inline constexpr VARTYPE VT_ERROR = 10;
inline constexpr VARTYPE VT_BOOL = 11;
inline constexpr VARTYPE VT_UNKNOWN = 13;
inline constexpr VARTYPE VT_I8 = 20;
inline constexpr VARTYPE VT_ARRAY = 0x2000;  ///< a one-dimensional array of the type in the other bits

using VARIANT_BOOL = std::int16_t;
inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

struct SAFEARRAY;

/// A value that carries its type. Holds a reference or allocation for the types that need one; CVariant looks
/// after that.
struct VARIANT {
    VARTYPE vt = VT_EMPTY;
    union {
        std::int64_t llVal = 0;
        std::int32_t lVal;
        std::int16_t iVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        HRESULT scode;
        BSTR bstrVal;
        IUnknown* punkVal;
        class IDispatch* pdispVal;
        SAFEARRAY* parray;
    };
};

/// A one-dimensional array whose first element has the index 0. Its elements are of one type: BSTRs here are
/// owned by the array.
struct SAFEARRAY {
    VARTYPE vt;
    std::uint32_t count;
    void* data;  ///< `count` elements
};

/// Null when memory is short or the type is none of VT_BSTR, VT_I2, VT_I4, VT_I8, VT_R4, VT_R8, VT_BOOL; the
/// elements are 0.
SAFEARRAY* SafeArrayCreateVector(VARTYPE type, std::uint32_t count) noexcept;
void SafeArrayDestroy(SAFEARRAY* array) noexcept;

/// Releases what the value holds, and makes it VT_EMPTY.
void VariantClear(VARIANT& value) noexcept;
/// E_OUTOFMEMORY, and `target` is then VT_EMPTY.
HRESULT VariantCopy(VARIANT& target, const VARIANT& source) noexcept;
/// Converts `source` to `type` (VT_BSTR, VT_UNKNOWN or the type it has); `target` may be `source`, and is
/// unchanged after a failure. Numbers become their shortest text, which reads back as the same number,
/// VT_BOOL "-1" or "0", VT_EMPTY an empty text. DISP_E_TYPEMISMATCH when there is no such conversion.
HRESULT VariantChangeType(VARIANT& target, const VARIANT& source, VARTYPE type) noexcept;

/// Owns a VARIANT.
class CVariant : public VARIANT {
 public:
    CVariant() noexcept = default;
    /// Throw std::bad_alloc.
    /// @{
    explicit CVariant(std::wstring_view text);
    explicit CVariant(const VARIANT& other);
    CVariant(const CVariant& other) : CVariant(static_cast<const VARIANT&>(other)) {}
    /// @}
    CVariant(CVariant&& other) noexcept : VARIANT(std::exchange(static_cast<VARIANT&>(other), VARIANT())) {}
    CVariant& operator=(CVariant other) noexcept {
        std::swap(static_cast<VARIANT&>(*this), static_cast<VARIANT&>(other));
        return *this;
    }
    ~CVariant() { VariantClear(*this); }

    static CVariant FromI2(std::int16_t value) noexcept;
    static CVariant FromI4(std::int32_t value) noexcept;
    static CVariant FromI8(std::int64_t value) noexcept;
    static CVariant FromR4(float value) noexcept;
    static CVariant FromR8(double value) noexcept;
    static CVariant FromBool(bool value) noexcept;
    static CVariant FromError(HRESULT value) noexcept;
    static CVariant FromUnknown(CComPtr<IUnknown> object) noexcept;
    static CVariant Null() noexcept;
    /// An array of texts. Throws std::bad_alloc.
    template <class Texts>
    static CVariant FromTexts(const Texts& texts);

    /// Where a call puts a new value; what was held is released first.
    VARIANT* Receive() noexcept {
        VariantClear(*this);
        return this;
    }
    /// Hands the value over to `target`, which must not hold one.
    void Detach(VARIANT& target) noexcept { target = std::exchange(static_cast<VARIANT&>(*this), VARIANT()); }
    /// Of a VT_BSTR; empty for any other.
    std::wstring_view Text() const noexcept { return vt == VT_BSTR ? ToView(bstrVal) : std::wstring_view(); }

 private:
    static CVariant FromTexts(std::size_t count, std::wstring_view (*text)(const void*, std::size_t),
                              const void* texts);
};

template <class Texts>
CVariant CVariant::FromTexts(const Texts& texts) {
    return FromTexts(
        texts.size(),
        [](const void* all, std::size_t index) {
            return std::wstring_view((*static_cast<const Texts*>(all))[index]);
        },
        &texts);
}

}  // namespace quorbel
