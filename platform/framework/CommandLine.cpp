#include "platform/framework/CommandLine.h"

namespace quorbel {

void CCommandLineInfo::ParseParam(std::wstring_view /*parameter*/, bool /*isFlag*/, bool /*isLast*/) {}

void ParseCommandLine(const std::vector<std::wstring>& parameters, CCommandLineInfo& info) {
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        std::wstring_view parameter = parameters[i];
        const bool isFlag = parameter.starts_with(L'-') || parameter.starts_with(L'/');
        if (isFlag) parameter.remove_prefix(1);
        info.ParseParam(parameter, isFlag, i + 1 == parameters.size());
    }
}

}  // namespace quorbel
