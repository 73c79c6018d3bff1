#pragma once

#include <string>
#include <string_view>

#include "platform/Error.h"

namespace quorbel {

/// What the program ends with; scripts rely on these.
enum class ExitCode { Success = 0, Failure = 1, Usage = 2 };

/// A text of this program's own on standard output, as it is.
void Print(std::wstring_view text);
/// A line for people on standard output; what it holds of others cannot play tricks on a terminal.
void PrintLine(std::wstring_view text);
/// A line for programs on standard output, UTF-8, as it is.
void PrintData(std::string_view line);
/// One line on standard error, shown as PrintLine does; gives Failure.
ExitCode Fail(std::wstring_view reason);
/// The same with the system's text for the error.
ExitCode Fail(std::wstring_view what, ErrorCode error);
/// A usage error with a pointer to the help; gives Usage.
ExitCode FailUsage(std::wstring_view reason, std::wstring_view command);

/// Asks the user, in a line shown as PrintLine does; refuses, and says on standard error that `option` is
/// needed, when no terminal is there to ask.
bool Confirm(std::wstring_view question, std::wstring_view option);

}  // namespace quorbel
