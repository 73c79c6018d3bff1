#pragma once

#include <memory>
#include <optional>

#include "platform/com/Dispatch.h"

namespace quorbel {

/// The object that a `Source` calls through `Interface`, which derives from IDispatch: hands all calls by
/// name to an invoker that it shares. Called from any thread; connected and disconnected by one.
template <class Invoker, class Source, class Interface>
class CCOMEventHandler final : public CComObject<Interface> {
 public:
    explicit CCOMEventHandler(std::shared_ptr<Invoker> invoker) noexcept : m_invoker(std::move(invoker)) {}

    /// Has itself called by `source`, and by none that it was connected to before.
    HRESULT Advise(Source& source) {
        Unadvise();
        CComPtr<IConnectionPointContainer> container;
        HRESULT result = source.QueryInterface(IConnectionPointContainer::kId, container.ReceiveVoid());
        if (Succeeded(result)) {
            result = container->FindConnectionPoint(Interface::kId, m_connectionPoint.Receive());
        }
        std::uint32_t cookie = 0;
        if (Succeeded(result)) result = m_connectionPoint->Advise(this, &cookie);
        if (Succeeded(result)) {
            m_cookie = cookie;
        } else {
            m_connectionPoint = nullptr;
        }
        return result;
    }

    /// The source, which holds a reference to this object, lets go of it.
    void Unadvise() noexcept {
        if (m_cookie) m_connectionPoint->Unadvise(*m_cookie);
        m_cookie.reset();
        m_connectionPoint = nullptr;
    }

    HRESULT GetTypeInfoCount(std::uint32_t*) override { return E_NOTIMPL; }
    HRESULT GetTypeInfo(std::uint32_t, std::uint32_t, IUnknown**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(const GUID& interfaceId, const wchar_t* const* names, std::uint32_t count,
                          std::uint32_t, DISPID* ids) override {
        return m_invoker->GetIDsOfNames(interfaceId, names, count, ids);
    }
    HRESULT Invoke(DISPID id, const GUID& interfaceId, std::uint32_t, std::uint16_t, DISPPARAMS* parameters,
                   VARIANT* result, EXCEPINFO* exception, std::uint32_t* wrongArgument) override {
        return m_invoker->Invoke(id, interfaceId, parameters, result, exception, wrongArgument);
    }

 private:
    ~CCOMEventHandler() override { Unadvise(); }

    CComPtr<IConnectionPoint> m_connectionPoint;
    std::optional<std::uint32_t> m_cookie;
    const std::shared_ptr<Invoker> m_invoker;
};

}  // namespace quorbel
