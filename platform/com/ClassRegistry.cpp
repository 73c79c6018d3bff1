#include "platform/com/ClassRegistry.h"

#include <map>

#include "platform/Lock.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

struct CRegisteredClasses {
    CMutex lock{LockRank::Innermost};  // guards what follows
    std::map<GUID, ComFactory> factories;
    std::map<std::wstring, GUID, CLessNoCase> programs;
};

CRegisteredClasses& Registered() {
    static CRegisteredClasses registered;
    return registered;
}

/// Empty for a class that nobody registered.
ComFactory FactoryOf(const GUID& classId) {
    CRegisteredClasses& registered = Registered();
    const std::lock_guard guard(registered.lock);
    const auto found = registered.factories.find(classId);
    return found == registered.factories.end() ? ComFactory() : found->second;
}

}  // namespace

CComRegistration::CComRegistration(const GUID& classId, ComFactory factory)
    : CComRegistration(classId, {}, std::move(factory)) {}

CComRegistration::CComRegistration(const GUID& classId, std::wstring programName, ComFactory factory)
    : m_classId(classId), m_programName(std::move(programName)) {
    CRegisteredClasses& registered = Registered();
    const std::lock_guard guard(registered.lock);
    registered.factories[classId].swap(factory);  // one that it replaces is destroyed without the lock
    if (!m_programName.empty()) registered.programs.insert_or_assign(m_programName, classId);
}

CComRegistration::~CComRegistration() {
    CRegisteredClasses& registered = Registered();
    std::map<GUID, ComFactory>::node_type factory;  // is destroyed without the lock
    const std::lock_guard guard(registered.lock);
    factory = registered.factories.extract(m_classId);
    registered.programs.erase(m_programName);
}

HRESULT CreateComInstance(const GUID& classId, const GUID& interfaceId, void** object) {
    const ComFactory factory = FactoryOf(classId);  // called without the lock: it may create others
    return factory ? factory(interfaceId, object) : REGDB_E_CLASSNOTREG;
}

std::optional<GUID> ClassOfProgram(std::wstring_view programName) {
    CRegisteredClasses& registered = Registered();
    const std::lock_guard guard(registered.lock);
    const auto found = registered.programs.find(programName);
    if (found == registered.programs.end()) return std::nullopt;
    return found->second;
}

}  // namespace quorbel
