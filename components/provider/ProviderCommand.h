#pragma once

#include <memory>
#include <string>
#include <vector>

#include "components/oledb/Accessors.h"
#include "components/provider/CommandFunctions.h"
#include "components/provider/SqlSession.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// A command of the provider. Cancel from any thread, all else from one at a time.
class CProviderCommand final
    : public CComObject<ICommandText, ICommandWithParameters, IAccessor, IConnectionPointContainer> {
 public:
    /// Throws std::bad_alloc.
    explicit CProviderCommand(std::shared_ptr<CSqlSession> connection);

    HRESULT Cancel() override;
    HRESULT Execute(IUnknown* outer, const GUID& interfaceId, DBPARAMS* parameters, std::int64_t* affected,
                    IUnknown** rowset) override;
    HRESULT SetCommandText(const GUID& dialect, const wchar_t* text) override;

    HRESULT GetParameterInfo(std::size_t* count, DBPARAMINFO** info) override;
    HRESULT SetParameterInfo(std::size_t count, const std::size_t* ordinals,
                             const DBPARAMBINDINFO* info) override;

    HRESULT CreateAccessor(std::uint32_t flags, std::size_t count, const DBBINDING* bindings,
                           std::size_t rowSize, HACCESSOR* accessor, DBSTATUS* statuses) override;
    HRESULT ReleaseAccessor(HACCESSOR accessor, std::uint32_t* references) override;

    HRESULT FindConnectionPoint(const GUID& interfaceId, IConnectionPoint** point) override;

 private:
    struct CParameter {
        std::size_t ordinal;
        std::wstring name;
        DBTYPE type;
        std::size_t size;
        std::uint32_t flags;
        std::uint8_t precision;
        std::uint8_t scale;
    };
    HRESULT Run(const GUID& interfaceId, DBPARAMS* parameters, IUnknown** rowset);
    HRESULT ReadArguments(const DBPARAMS* parameters, std::vector<CSqlArgument>& arguments) const;

    const std::shared_ptr<CSqlSession> m_connection;
    const CComPtr<CSinkPoint> m_point;
    const std::shared_ptr<CCancelFlag> m_isCanceled;
    std::wstring m_text;
    std::vector<CParameter> m_parameters;  // as they were declared
    std::vector<std::size_t> m_byOrdinal;  // places in m_parameters
    CAccessors m_accessors = CAccessors::ForParameters();
};

}  // namespace quorbel
