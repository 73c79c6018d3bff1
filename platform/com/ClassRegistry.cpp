#include "platform/com/ClassRegistry.h"

#include <map>

#include "platform/Text.h"

namespace quorbel {

namespace {

std::map<GUID, ComFactory>& Classes() {
    static std::map<GUID, ComFactory> classes;
    return classes;
}

std::map<std::wstring, GUID, CLessNoCase>& Programs() {
    static std::map<std::wstring, GUID, CLessNoCase> programs;
    return programs;
}

}  // namespace

CComRegistration::CComRegistration(const GUID& classId, ComFactory factory)
    : CComRegistration(classId, {}, std::move(factory)) {}

CComRegistration::CComRegistration(const GUID& classId, std::wstring programName, ComFactory factory)
    : m_classId(classId), m_programName(std::move(programName)) {
    Classes()[classId] = std::move(factory);
    if (!m_programName.empty()) Programs().insert_or_assign(m_programName, classId);
}

CComRegistration::~CComRegistration() {
    Classes().erase(m_classId);
    Programs().erase(m_programName);
}

HRESULT CreateComInstance(const GUID& classId, const GUID& interfaceId, void** object) {
    const auto found = Classes().find(classId);
    return found == Classes().end() ? REGDB_E_CLASSNOTREG : found->second(interfaceId, object);
}

std::optional<GUID> ClassOfProgram(std::wstring_view programName) {
    const auto found = Programs().find(programName);
    if (found == Programs().end()) return std::nullopt;
    return found->second;
}

}  // namespace quorbel
