#pragma once

#include "data/scripting/ActionEventInvoker.h"
#include "data/scripting/COMEventHandler.h"
#include "platform/oledb/OleDb.h"

namespace quorbel {

/// What a data source has of its own to be called by its provider.
class CDataAccessor {
 public:
    /// Made with the data source's action state, which it shares, and advised on each command before it is
    /// executed.
    using CActionEventHandler = CCOMEventHandler<CActionEventInvoker, ICommand, IDispatch>;
};

}  // namespace quorbel
