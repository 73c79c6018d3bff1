#pragma once

#include <memory>
#include <vector>

#include "platform/oledb/OleDb.h"

namespace quorbel {

/// The accessors of one object: how its consumer's buffers are laid out. One thread at a time.
class CAccessors {
 public:
    /// For rows of so many columns.
    static CAccessors ForRows(std::size_t columns) { return {DBACCESSOR_ROWDATA, columns}; }
    static CAccessors ForParameters() { return {DBACCESSOR_PARAMETERDATA, kUnknownSize}; }

    /// As IAccessor says: DB_E_ERRORSOCCURRED when a binding asks for an ordinal or a type that there is not.
    /// @{
    HRESULT Create(std::uint32_t flags, std::size_t count, const DBBINDING* bindings, HACCESSOR* accessor,
                   DBSTATUS* statuses);
    HRESULT Release(HACCESSOR accessor, std::uint32_t* references);
    /// @}
    /// Null for a handle that is none.
    const std::vector<DBBINDING>* Find(HACCESSOR accessor) const noexcept;

 private:
    CAccessors(DBACCESSORFLAGS flags, std::size_t mostOrdinal) : m_flags(flags), m_mostOrdinal(mostOrdinal) {}
    DBSTATUS Check(const DBBINDING& binding) const noexcept;

    const DBACCESSORFLAGS m_flags;
    const std::size_t m_mostOrdinal;
    std::vector<std::unique_ptr<std::vector<DBBINDING>>> m_accessors;
};

}  // namespace quorbel
