#pragma once

#include <string>
#include <vector>

#include "components/provider/SqlFunctions.h"
#include "platform/Lock.h"
#include "platform/com/Dispatch.h"
#include "platform/oledb/ScriptProperties.h"

namespace quorbel {

/// Where the consumer advises the sink that carries out a command's script actions. Safe to use from any
/// thread.
class CSinkPoint final : public CComObject<IConnectionPoint> {
 public:
    HRESULT Advise(IUnknown* sink, std::uint32_t* cookie) override;
    HRESULT Unadvise(std::uint32_t cookie) override;
    /// Null when none is advised.
    CComPtr<IDispatch> Sink() const;

 private:
    mutable CMutex m_lock{LockRank::Innermost};  // guards:
    CComPtr<IDispatch> m_sink;
    std::uint32_t m_cookie = 0;
};

/// What the functions of one execution do. One thread at a time. Members throw std::bad_alloc.
class CCommandFunctions final : public ISqlFunctions {
 public:
    explicit CCommandFunctions(CComPtr<CSinkPoint> point) : m_point(std::move(point)) {}

    HRESULT SetProvenance(std::wstring_view provenance) override;
    HRESULT AddHeader(std::wstring_view field) override;
    HRESULT SetScriptLibrary(std::wstring_view path) override;
    HRESULT SetScriptResource(const VARIANT& resource) override;
    HRESULT RunScriptAction(std::wstring_view name, std::span<const CVariant> arguments,
                            CVariant& result) override;

    /// VT_EMPTY when none was set.
    const CVariant& Provenance() const noexcept { return m_provenance; }
    const std::vector<std::wstring>& Headers() const noexcept { return m_headers; }

 private:
    HRESULT SetProperty(const wchar_t* name, const VARIANT& value);

    const CComPtr<CSinkPoint> m_point;
    CVariant m_provenance;
    std::vector<std::wstring> m_headers;
    std::size_t m_headerBytes = 0;  // of all, in UTF-8
};

}  // namespace quorbel
