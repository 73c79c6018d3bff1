#pragma once

#include "platform/com/ClassRegistry.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// Makes the service component (kDataInitializeClass) known to this process.
CComRegistration RegisterDataInitialize();

}  // namespace quorbel
