#include "tools/qbctl/KeyArgument.h"

#include "platform/Root.h"
#include "platform/Text.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kLocalMachine = L"HKEY_LOCAL_MACHINE";

}  // namespace

std::optional<std::wstring> ParseKey(std::wstring_view typed) {
    for (std::wstring_view root : {kLocalMachine, std::wstring_view(L"HKLM")}) {
        if (!StartsWithNoCase(typed, root)) continue;
        std::wstring_view path = typed.substr(root.size());
        if (!path.empty() && path.front() != L'\\') continue;
        while (path.starts_with(L'\\')) path.remove_prefix(1);
        while (path.ends_with(L'\\')) path.remove_suffix(1);
        return std::wstring(path);
    }
    Ignore(Fail(L"A key begins with HKLM or HKEY_LOCAL_MACHINE: " + std::wstring(typed)));
    return std::nullopt;
}

std::wstring FullName(std::wstring_view path) {
    std::wstring name(kLocalMachine);
    if (!path.empty()) name.append(L"\\").append(path);
    return name;
}

ExitCode WithRegistry(const std::function<ExitCode(IRegistry&)>& work) {
    const auto registry = OpenRootRegistry();
    if (!registry.IsOk()) return Fail(L"The registry cannot be opened", registry.Error());
    return work(*registry.Value());
}

ExitCode WithTransaction(const std::function<ExitCode(IKey& root)>& work) {
    return WithRegistry([&](IRegistry& registry) {
        const auto transaction = registry.Begin();
        if (!transaction.IsOk()) return Fail(L"The registry cannot be changed", transaction.Error());
        const ExitCode code = work(*registry.LocalMachine());
        if (code != ExitCode::Success) return code;
        const ErrorCode error = transaction.Value()->Commit();
        if (error != ErrorCode::Success) return Fail(L"The registry cannot be changed", error);
        return ExitCode::Success;
    });
}

}  // namespace quorbel
