#include "LibService/WinService.h"
#include "platform/Text.h"

namespace quorbel {

void CWinService::CServiceCommandLineInfo::ParseParam(std::wstring_view parameter, bool isFlag, bool isLast) {
    if (isFlag && ParseFlag(parameter)) return;
    const ShellCommand before = m_command;
    CCommandLineInfo::ParseParam(parameter, isFlag, isLast);
    if (m_command != before) return;
    m_command = ShellCommand::Invalid;
    if (!m_hasInvalidParameter) m_invalidParameter = parameter;
    m_hasInvalidParameter = true;
}

/// False when there is no such flag.
bool CWinService::CServiceCommandLineInfo::ParseFlag(std::wstring_view flag) {
    if (EqualNoCase(flag, L"install")) {
        m_command = ShellCommand::Install;
    } else if (EqualNoCase(flag, L"remove")) {
        m_command = ShellCommand::Remove;
    } else if (EqualNoCase(flag, L"debug")) {
        m_isDebug = true;
    } else if (EqualNoCase(flag, L"help") || EqualNoCase(flag, L"-help")) {
        m_command = ShellCommand::Help;
    } else {
        return false;
    }
    m_runsUnderManager = false;
    return true;
}

std::wstring InvalidParameterText(const std::wstring& parameter) {
    return L"You have supplied an invalid command line parameter '" + parameter +
           L"'.\n\n"
           L"Allowed parameters are:\n"
           L"  -install (to install the service)\n"
           L"  -remove (to remove the service)\n"
           L"  -debug (to run in debugging mode)";
}

}  // namespace quorbel
