#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/com/Com.h"

namespace quorbel {

/// Creates an instance of a component's class; `object` receives the interface asked for. Called on the
/// threads of those who create, at the same time as well.
using ComFactory = std::function<HRESULT(const GUID& interfaceId, void** object)>;

/// Keeps a component's class known to this process for as long as it lives. Safe to make and destroy while
/// other threads create components; a factory that one of them has begun to call may still run after the end.
class [[nodiscard]] CComRegistration {
 public:
    CComRegistration(const GUID& classId, ComFactory factory);
    /// A class that is found by its program's name as well, without regard to case.
    CComRegistration(const GUID& classId, std::wstring programName, ComFactory factory);
    ~CComRegistration();
    CComRegistration(const CComRegistration&) = delete;
    CComRegistration& operator=(const CComRegistration&) = delete;

 private:
    const GUID m_classId;
    const std::wstring m_programName;
};

/// Creates a component in process. REGDB_E_CLASSNOTREG for a class that nobody registered.
HRESULT CreateComInstance(const GUID& classId, const GUID& interfaceId, void** object);

template <class Interface>
HRESULT CreateComInstance(const GUID& classId, CComPtr<Interface>& object) {
    return CreateComInstance(classId, Interface::kId, object.ReceiveVoid());
}

/// The class of a program's name; none when nobody registered it.
std::optional<GUID> ClassOfProgram(std::wstring_view programName);

}  // namespace quorbel
