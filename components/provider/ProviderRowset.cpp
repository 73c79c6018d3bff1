#include "components/provider/ProviderRowset.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kProvenance = L"HTTP.Provenance";
constexpr std::wstring_view kHeader = L"HTTP.Header";

CVariant HeaderValue(const std::vector<std::wstring>& headers) {
    return headers.empty() ? CVariant() : CVariant::FromTexts(headers);
}

}  // namespace

CProviderRowset::CProviderRowset(const std::shared_ptr<CExecution>& execution)
    : CRowsetObject({execution, &execution->Rows()}, [execution] { return execution->IsCanceled(); }),
      m_provenance(execution->Functions().Provenance()),
      m_headers(HeaderValue(execution->Functions().Headers())) {}

HRESULT CProviderRowset::GetCount(std::uint32_t* count) {
    if (!count) return E_POINTER;
    *count = (m_provenance.vt != VT_EMPTY ? 1 : 0) + (m_headers.vt != VT_EMPTY ? 1 : 0);
    return S_OK;
}

HRESULT CProviderRowset::GetValue(const VARIANT* name, VARIANT* value) {
    if (!name || !value) return E_POINTER;
    if (name->vt != VT_BSTR) return DISP_E_TYPEMISMATCH;
    const std::wstring_view text = ToView(name->bstrVal);
    if (text == kProvenance) return VariantCopy(*value, m_provenance);
    if (text == kHeader) return VariantCopy(*value, m_headers);
    return VariantCopy(*value, VARIANT());
}

}  // namespace quorbel
