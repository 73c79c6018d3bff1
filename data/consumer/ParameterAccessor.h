#pragma once

#include <memory>
#include <span>

#include "data/consumer/DataSource.h"

namespace quorbel {

/// The values of a command's parameters, bound as one set. Lives as long as the execution.
class CParameterAccessor {
 public:
    CParameterAccessor() = default;
    ~CParameterAccessor();
    CParameterAccessor(const CParameterAccessor&) = delete;
    CParameterAccessor& operator=(const CParameterAccessor&) = delete;

    /// Binds each parameter to that of the same name among those which the command reports; E_FAIL when it
    /// reports none. Refers to the parameters' values. Throws std::bad_alloc.
    HRESULT Bind(ICommandWithParameters& command, std::span<const CHTMLDataSource::CParameter> parameters,
                 const CAccessorBuffer& sizes);
    /// For ICommand::Execute.
    DBPARAMS* Parameters() noexcept { return &m_parameters; }

 private:
    HRESULT AddBindings(std::span<const CHTMLDataSource::CParameter> parameters,
                        std::span<const DBPARAMINFO> reported, const CAccessorBuffer& sizes);
    void Fill(std::span<const CHTMLDataSource::CParameter> parameters);

    CComPtr<IAccessor> m_accessor;
    std::vector<DBBINDING> m_bindings;
    std::size_t m_size = 0;
    std::unique_ptr<std::byte[]> m_buffer;
    DBPARAMS m_parameters{nullptr, 1, 0};
};

}  // namespace quorbel
