#pragma once

#include <map>
#include <string>
#include <vector>

#include "data/scripting/ScriptEngine.h"
#include "platform/Lock.h"
#include "platform/com/Dispatch.h"
#include "platform/oledb/ScriptProperties.h"

namespace quorbel {

/// The actions that a data source's provider asks for while a command runs: numbers for their names, the
/// script engine library that performs them ("Actor") and the value that each of them is given ("Resource").
/// From any thread.
class CActionEventInvoker {
 public:
    /// As IDispatch has them: properties go through kScriptProperties, actions through IID_NULL. A new name
    /// of an action or an argument gets the next number, from 1 on.
    /// @{
    HRESULT GetIDsOfNames(const GUID& interfaceId, const wchar_t* const* names, std::uint32_t count,
                          DISPID* ids) noexcept;
    HRESULT Invoke(DISPID id, const GUID& interfaceId, const DISPPARAMS* parameters, VARIANT* result,
                   EXCEPINFO* exception, std::uint32_t* wrongArgument) noexcept;
    /// @}

 private:
    struct CAction;

    DISPID IdOf(std::wstring_view name);
    HRESULT SetProperty(DISPID id, const DISPPARAMS* parameters);
    HRESULT MakeAction(DISPID id, const DISPPARAMS& parameters, CAction& action,
                       std::uint32_t* wrongArgument);
    static CVariant Perform(CAction& action);
    static HRESULT Return(CAction& action, VARIANT* result, EXCEPINFO* exception) noexcept;

    CMutex m_lock{LockRank::Innermost};
    /// Guarded by m_lock.
    /// @{
    std::map<std::wstring, DISPID, std::less<>> m_ids;
    std::map<DISPID, std::wstring> m_names;
    DISPID m_nextId = 1;
    CVariant m_actor;
    CVariant m_resource;
    /// @}
};

}  // namespace quorbel
