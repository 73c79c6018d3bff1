#include "platform/com/ClassRegistry.h"

#include <map>

namespace quorbel {

namespace {

std::map<GUID, ComFactory>& Classes() {
    static std::map<GUID, ComFactory> classes;
    return classes;
}

}  // namespace

CComRegistration::CComRegistration(const GUID& classId, ComFactory factory) : m_classId(classId) {
    Classes()[classId] = std::move(factory);
}

CComRegistration::~CComRegistration() {
    Classes().erase(m_classId);
}

HRESULT CreateComInstance(const GUID& classId, const GUID& interfaceId, void** object) {
    const auto found = Classes().find(classId);
    return found == Classes().end() ? REGDB_E_CLASSNOTREG : found->second(interfaceId, object);
}

}  // namespace quorbel
