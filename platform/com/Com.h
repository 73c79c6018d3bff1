#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace quorbel {

/// The part of the component object model that the system uses. OLECHAR is wchar_t; sizes that COM gives in
/// bytes of two-byte characters are counted in characters.
using HRESULT = std::int32_t;
using OLECHAR = wchar_t;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr auto E_NOTIMPL = static_cast<HRESULT>(0x80004001);
inline constexpr auto E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
inline constexpr auto E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr auto E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr auto E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
inline constexpr auto E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr auto E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr auto DISP_E_MEMBERNOTFOUND = static_cast<HRESULT>(0x80020003);
inline constexpr auto DISP_E_TYPEMISMATCH = static_cast<HRESULT>(0x80020005);
inline constexpr auto DISP_E_UNKNOWNNAME = static_cast<HRESULT>(0x80020006);
inline constexpr auto DISP_E_EXCEPTION = static_cast<HRESULT>(0x80020009);
inline constexpr auto DISP_E_OVERFLOW = static_cast<HRESULT>(0x8002000A);
inline constexpr auto DISP_E_BADINDEX = static_cast<HRESULT>(0x8002000B);
inline constexpr auto CONNECT_E_NOCONNECTION = static_cast<HRESULT>(0x80040200);
inline constexpr auto CONNECT_E_ADVISELIMIT = static_cast<HRESULT>(0x80040201);
inline constexpr auto REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154);
constexpr bool Succeeded(HRESULT result) noexcept {
    return result >= 0;
}
/// HRESULT_FROM_WIN32: numbers that are 0 or negative stay as they are.
constexpr HRESULT HResultFromWin32(std::uint32_t number) noexcept {
    return static_cast<HRESULT>(number) <= 0 ? static_cast<HRESULT>(number)
                                             : static_cast<HRESULT>(0x80070000 | (number & 0xFFFF));
}
/// The system's text for an HRESULT, empty when it has none.
std::wstring HResultMessage(HRESULT result);

struct GUID {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];
    auto operator<=>(const GUID&) const = default;
};

class IUnknown {
 public:
    static constexpr GUID kId{0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    virtual HRESULT QueryInterface(const GUID& id, void** object) = 0;
    virtual std::uint32_t AddRef() = 0;
    virtual std::uint32_t Release() = 0;

 protected:
    ~IUnknown() = default;
};

/// Owns one reference to a COM object.
template <class T>
class CComPtr {
 public:
    CComPtr() noexcept = default;
    CComPtr(std::nullptr_t) noexcept {}  // NOLINT: implicit
    explicit CComPtr(T* object) noexcept : m_object(object) {
        if (m_object) m_object->AddRef();
    }
    CComPtr(const CComPtr& other) noexcept : CComPtr(other.m_object) {}
    CComPtr(CComPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    CComPtr& operator=(CComPtr other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~CComPtr() {
        if (m_object) m_object->Release();
    }

    T* Get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    /// Hands the reference over to the caller, who releases it.
    T* Detach() noexcept { return std::exchange(m_object, nullptr); }
    /// Where a call puts a new reference; what was held is released first.
    T** Receive() noexcept {
        *this = CComPtr();
        return &m_object;
    }
    void** ReceiveVoid() noexcept { return reinterpret_cast<void**>(Receive()); }

    template <class U>
    HRESULT QueryInterface(CComPtr<U>& other) const {
        return m_object->QueryInterface(U::kId, other.ReceiveVoid());
    }

 private:
    T* m_object = nullptr;
};

/// Reference counting and interface lookup for an object that implements `Interfaces`; each names its
/// identifier as kId. Created with a count of 0: hand the object to a CComPtr at once.
template <class... Interfaces>
class CComObject : public Interfaces... {
 public:
    HRESULT QueryInterface(const GUID& id, void** object) override {
        if (!object) return E_POINTER;
        *object = nullptr;
        (Offer<Interfaces>(id, object), ...);
        if (!*object && id == IUnknown::kId) {
            using First = std::tuple_element_t<0, std::tuple<Interfaces...>>;
            *object = static_cast<First*>(this);
        }
        if (!*object) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    std::uint32_t AddRef() override { return ++m_count; }
    std::uint32_t Release() override {
        const std::uint32_t left = --m_count;
        if (left == 0) delete this;
        return left;
    }

 protected:
    virtual ~CComObject() = default;

 private:
    /// An interface that derives from another one names it as Base.
    template <class Interface>
    static bool IsOrDerivesFrom(const GUID& id) {
        if (id == Interface::kId) return true;
        if constexpr (requires { typename Interface::Base; }) {
            return IsOrDerivesFrom<typename Interface::Base>(id);
        }
        return false;
    }
    template <class Interface>
    void Offer(const GUID& id, void** object) {
        if (!*object && IsOrDerivesFrom<Interface>(id)) *object = static_cast<Interface*>(this);
    }
    std::atomic<std::uint32_t> m_count{0};
};

}  // namespace quorbel
