#pragma once

#include <memory>
#include <string>

#include "platform/com/ClassRegistry.h"

namespace quorbel {

/// What keeps the search component known.
struct CSearchRegistration {
    CComRegistration manager;
    CComRegistration provider;
};

/// Makes kSearchManagerClass and the OLE DB provider "Quorbel.SearchProvider" known, over the index in a
/// folder, for as long as the result lives. The index need not be there yet; commands use the one that is
/// there when they begin. Nothing of it outlives the result but objects that are still held.
CSearchRegistration RegisterSearch(std::string indexFolder);

}  // namespace quorbel
