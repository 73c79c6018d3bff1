#pragma once

#include <functional>
#include <string>

#include "platform/registry/Key.h"
#include "tools/qbctl/Arguments.h"
#include "tools/qbctl/Terminal.h"

namespace quorbel {

/// Runs `work` with the key of the users of the host that --host names, of the only host when it is not
/// given, in a transaction for reading. Success without a call when the host has no such key.
ExitCode ReadUsers(const CArguments& arguments, const std::function<ExitCode(const IKey& users)>& work);
/// The same in one transaction for writing, which lasts when `work` gives Success; creates the key.
ExitCode ChangeUsers(const CArguments& arguments, const std::function<ExitCode(IKey& users)>& work);

/// The same with the key of the user whom the first operand names; fails when there is none.
/// @{
ExitCode ReadUser(const CArguments& arguments, const std::function<ExitCode(const IKey& user)>& work);
ExitCode ChangeUser(const CArguments& arguments, const std::function<ExitCode(IKey& user)>& work);
/// @}

/// The user's name as typed can be one. Says so, and points to the command's help, when it cannot.
ExitCode CheckUserName(const std::wstring& name, std::wstring_view command);

}  // namespace quorbel
