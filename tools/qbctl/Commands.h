#pragma once

#include <span>
#include <string>

#include "tools/qbctl/Arguments.h"
#include "tools/qbctl/Terminal.h"

namespace quorbel {

/// One command of the program: its words as typed, what it takes, its help and what it does.
struct CCommand {
    std::wstring_view name;  ///< "reg query"
    std::vector<COption> options;
    std::size_t fewestOperands;
    std::size_t mostOperands;
    std::wstring_view help;
    ExitCode (*run)(const CArguments& arguments);
};

ExitCode RegQuery(const CArguments& arguments);
ExitCode RegAdd(const CArguments& arguments);
ExitCode RegDelete(const CArguments& arguments);
ExitCode RegImport(const CArguments& arguments);
ExitCode RegExport(const CArguments& arguments);
ExitCode HostList(const CArguments& arguments);
ExitCode HostAdd(const CArguments& arguments);
ExitCode HostRemove(const CArguments& arguments);
ExitCode UserList(const CArguments& arguments);
ExitCode UserAdd(const CArguments& arguments);
ExitCode UserRemove(const CArguments& arguments);
ExitCode UserPasswd(const CArguments& arguments);
ExitCode UserAdmin(const CArguments& arguments);
ExitCode UserPasskeys(const CArguments& arguments);
ExitCode UserSignOut(const CArguments& arguments);
ExitCode CertBind(const CArguments& arguments);
ExitCode CertList(const CArguments& arguments);
ExitCode CertRemove(const CArguments& arguments);
ExitCode CertCreate(const CArguments& arguments);
ExitCode SearchStatus(const CArguments& arguments);
ExitCode SearchQuery(const CArguments& arguments);
ExitCode SearchRebuild(const CArguments& arguments);
ExitCode SearchSkipped(const CArguments& arguments);
ExitCode TraceShow(const CArguments& arguments);
ExitCode TraceFollow(const CArguments& arguments);
ExitCode Events(const CArguments& arguments);

}  // namespace quorbel
