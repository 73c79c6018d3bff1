#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorbel {

/// What a command line asks the application for.
enum class ShellCommand : int {
    None = 0,
    Install = 6,
    Remove = 7,
    Nothing = 8,  ///< the same as None
    Invalid = 9,  ///< a parameter is not known
    Help = 10
};

/// What is known of a command line: filled parameter by parameter. The base knows no parameter.
class CCommandLineInfo {
 public:
    virtual ~CCommandLineInfo() = default;

    /// Takes in one parameter. A flag comes without the "-" or "/" that made it one.
    virtual void ParseParam(std::wstring_view parameter, bool isFlag, bool isLast);

    ShellCommand Command() const noexcept { return m_command; }

 protected:
    ShellCommand m_command = ShellCommand::None;
};

/// Hands the parameters to `info` one after the other; the program's name is not among them.
void ParseCommandLine(const std::vector<std::wstring>& parameters, CCommandLineInfo& info);

}  // namespace quorbel
