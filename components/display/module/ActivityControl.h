#pragma once

#include "components/display/Display.h"
#include "components/display/module/ActivityPanel.h"
#include "components/display/module/FltkControl.h"
#include "platform/com/Dispatch.h"

namespace quorbel {

/// The activity-display control.
class CActivityControl final : public CComObject<IDispatch, IFltkControl> {
 public:
    explicit CActivityControl(CDisplayServices services) : m_services(std::move(services)) {}

    Fl_Widget* CreateWidget() override;
    void DestroyWidget() override { m_panel.reset(); }

    HRESULT GetTypeInfoCount(std::uint32_t* count) override;
    HRESULT GetTypeInfo(std::uint32_t, std::uint32_t, IUnknown**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(const GUID& interfaceId, const wchar_t* const* names, std::uint32_t count,
                          std::uint32_t locale, DISPID* ids) override;
    HRESULT Invoke(DISPID id, const GUID& interfaceId, std::uint32_t locale, std::uint16_t flags,
                   DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                   std::uint32_t* wrongArgument) override;

 private:
    HRESULT MessageLib(const std::wstring& name);
    HRESULT Connect(const std::wstring& target);

    const CDisplayServices m_services;
    std::shared_ptr<const CTraceTexts> m_texts = std::make_shared<const CTraceTexts>();
    std::unique_ptr<CActivityReader> m_reader;
    std::unique_ptr<CActivityPanel> m_panel;  // uses the reader
    std::string m_serviceName;
};

}  // namespace quorbel
