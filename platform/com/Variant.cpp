#include "platform/com/Variant.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "platform/com/Dispatch.h"

namespace quorbel {

namespace {

/// A text's length stands before its first character, in a place that keeps the characters aligned.
constexpr std::size_t kLengthBytes = sizeof(std::size_t);

std::size_t ElementSize(VARTYPE type) noexcept {
    switch (type) {
        case VT_I2:
        case VT_BOOL: return 2;
        case VT_I4:
        case VT_R4: return 4;
        case VT_I8:
        case VT_R8:
        case VT_BSTR: return 8;
        default: return 0;
    }
}

SAFEARRAY* CopyArray(const SAFEARRAY* source) noexcept {
    if (!source) return nullptr;
    SAFEARRAY* const copy = SafeArrayCreateVector(source->vt, source->count);
    if (!copy) return nullptr;
    if (source->vt != VT_BSTR) {
        std::memcpy(copy->data, source->data, source->count * ElementSize(source->vt));
        return copy;
    }
    const auto* const from = static_cast<const BSTR*>(source->data);
    auto* const to = static_cast<BSTR*>(copy->data);
    for (std::uint32_t index = 0; index != source->count; ++index) {
        if (!from[index]) continue;
        to[index] = SysAllocString(ToView(from[index]));
        if (to[index]) continue;
        SafeArrayDestroy(copy);
        return nullptr;
    }
    return copy;
}

template <class Number>
std::wstring NumberText(Number number) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

std::optional<std::wstring> TextOf(const VARIANT& value) {
    switch (value.vt) {
        case VT_EMPTY: return std::wstring();
        case VT_I2: return NumberText(value.iVal);
        case VT_I4: return NumberText(value.lVal);
        case VT_I8: return NumberText(value.llVal);
        case VT_R4: return NumberText(value.fltVal);
        case VT_R8: return NumberText(value.dblVal);
        case VT_BOOL: return std::wstring(value.boolVal ? L"-1" : L"0");
        default: return std::nullopt;
    }
}

/// Gives the target its new value, which may be part of the old one.
void Replace(VARIANT& target, CVariant value) noexcept {
    std::swap(target, static_cast<VARIANT&>(value));
}

HRESULT ToText(VARIANT& target, const VARIANT& source) {
    const auto text = TextOf(source);
    if (!text) return DISP_E_TYPEMISMATCH;
    Replace(target, CVariant(*text));
    return S_OK;
}

}  // namespace

void* CoTaskMemAlloc(std::size_t bytes) noexcept {
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void CoTaskMemFree(void* memory) noexcept {
    std::free(memory);
}

BSTR SysAllocStringLen(const wchar_t* text, std::size_t length) noexcept {
    constexpr std::size_t kMost = (SIZE_MAX - kLengthBytes) / sizeof(wchar_t) - 1;
    if (length > kMost) return nullptr;
    auto* const block = static_cast<char*>(std::malloc(kLengthBytes + (length + 1) * sizeof(wchar_t)));
    if (!block) return nullptr;
    std::memcpy(block, &length, kLengthBytes);
    auto* const characters = reinterpret_cast<wchar_t*>(block + kLengthBytes);
    if (text && length) std::memcpy(characters, text, length * sizeof(wchar_t));
    characters[length] = L'\0';
    return characters;
}

void SysFreeString(BSTR text) noexcept {
    if (text) std::free(reinterpret_cast<char*>(text) - kLengthBytes);
}

std::size_t SysStringLen(const wchar_t* text) noexcept {
    if (!text) return 0;
    std::size_t length = 0;
    std::memcpy(&length, reinterpret_cast<const char*>(text) - kLengthBytes, kLengthBytes);
    return length;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, std::uint32_t count) noexcept {
    const std::size_t size = ElementSize(type);
    if (size == 0) return nullptr;
    auto* const array = new (std::nothrow) SAFEARRAY{type, count, nullptr};
    if (!array) return nullptr;
    array->data = std::calloc(count == 0 ? 1 : count, size);
    if (array->data) return array;
    delete array;
    return nullptr;
}

void SafeArrayDestroy(SAFEARRAY* array) noexcept {
    if (!array) return;
    if (array->vt == VT_BSTR) {
        auto* const texts = static_cast<BSTR*>(array->data);
        for (std::uint32_t index = 0; index != array->count; ++index) SysFreeString(texts[index]);
    }
    std::free(array->data);
    delete array;
}

void VariantClear(VARIANT& value) noexcept {
    const VARIANT old = std::exchange(value, VARIANT());
    if (old.vt == VT_BSTR) SysFreeString(old.bstrVal);
    if (old.vt == VT_UNKNOWN && old.punkVal) old.punkVal->Release();
    if (old.vt == VT_DISPATCH && old.pdispVal) old.pdispVal->Release();
    if (old.vt & VT_ARRAY) SafeArrayDestroy(old.parray);
}

HRESULT VariantCopy(VARIANT& target, const VARIANT& source) noexcept {
    if (&target == &source) return S_OK;
    VARIANT copy = source;
    bool isWhole = true;
    if (source.vt == VT_BSTR) {
        copy.bstrVal = SysAllocString(ToView(source.bstrVal));
        isWhole = copy.bstrVal != nullptr;
    } else if (source.vt & VT_ARRAY) {
        copy.parray = CopyArray(source.parray);
        isWhole = copy.parray != nullptr || !source.parray;
    } else if (source.vt == VT_UNKNOWN && source.punkVal) {
        source.punkVal->AddRef();
    } else if (source.vt == VT_DISPATCH && source.pdispVal) {
        source.pdispVal->AddRef();
    }
    VariantClear(target);
    if (!isWhole) return E_OUTOFMEMORY;
    target = copy;
    return S_OK;
}

HRESULT VariantChangeType(VARIANT& target, const VARIANT& source, VARTYPE type) noexcept {
    try {
        if (source.vt == type) {
            Replace(target, CVariant(source));
            return S_OK;
        }
        if (type == VT_BSTR) return ToText(target, source);
        if (type == VT_UNKNOWN && source.vt == VT_DISPATCH) {
            Replace(target, CVariant::FromUnknown(CComPtr<IUnknown>(source.pdispVal)));
            return S_OK;
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return DISP_E_TYPEMISMATCH;
}

CVariant::CVariant(std::wstring_view text) {
    bstrVal = SysAllocString(text);
    if (!bstrVal) throw std::bad_alloc();
    vt = VT_BSTR;
}

CVariant::CVariant(const VARIANT& other) {
    if (VariantCopy(*this, other) != S_OK) throw std::bad_alloc();
}

CVariant CVariant::FromI2(std::int16_t value) noexcept {
    CVariant made;
    made.vt = VT_I2;
    made.iVal = value;
    return made;
}

CVariant CVariant::FromI4(std::int32_t value) noexcept {
    CVariant made;
    made.vt = VT_I4;
    made.lVal = value;
    return made;
}

CVariant CVariant::FromI8(std::int64_t value) noexcept {
    CVariant made;
    made.vt = VT_I8;
    made.llVal = value;
    return made;
}

CVariant CVariant::FromR4(float value) noexcept {
    CVariant made;
    made.vt = VT_R4;
    made.fltVal = value;
    return made;
}

CVariant CVariant::FromR8(double value) noexcept {
    CVariant made;
    made.vt = VT_R8;
    made.dblVal = value;
    return made;
}

CVariant CVariant::FromBool(bool value) noexcept {
    CVariant made;
    made.vt = VT_BOOL;
    made.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return made;
}

CVariant CVariant::FromError(HRESULT value) noexcept {
    CVariant made;
    made.vt = VT_ERROR;
    made.scode = value;
    return made;
}

CVariant CVariant::FromUnknown(CComPtr<IUnknown> object) noexcept {
    CVariant made;
    made.vt = VT_UNKNOWN;
    made.punkVal = object.Detach();
    return made;
}

CVariant CVariant::Null() noexcept {
    CVariant made;
    made.vt = VT_NULL;
    return made;
}

CVariant CVariant::FromTexts(std::size_t count, std::wstring_view (*text)(const void*, std::size_t),
                             const void* texts) {
    CVariant made;
    made.parray = SafeArrayCreateVector(VT_BSTR, static_cast<std::uint32_t>(count));
    if (!made.parray) throw std::bad_alloc();
    made.vt = VT_ARRAY | VT_BSTR;
    auto* const elements = static_cast<BSTR*>(made.parray->data);
    for (std::size_t index = 0; index != count; ++index) {
        elements[index] = SysAllocString(text(texts, index));
        if (!elements[index]) throw std::bad_alloc();
    }
    return made;
}

}  // namespace quorbel
