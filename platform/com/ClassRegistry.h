#pragma once

#include <functional>

#include "platform/com/Com.h"

namespace quorbel {

/// Creates an instance of a component's class; `object` receives the interface asked for.
using ComFactory = std::function<HRESULT(const GUID& interfaceId, void** object)>;

/// Makes a component's class known to this process; a later factory of the same class replaces the earlier.
/// Called by main() before other threads run.
void RegisterComClass(const GUID& classId, ComFactory factory);

/// Creates a component in process. REGDB_E_CLASSNOTREG for a class that nobody registered.
HRESULT CreateComInstance(const GUID& classId, const GUID& interfaceId, void** object);

template <class Interface>
HRESULT CreateComInstance(const GUID& classId, CComPtr<Interface>& object) {
    return CreateComInstance(classId, Interface::kId, object.ReceiveVoid());
}

}  // namespace quorbel
