#include "tools/qbctl/UserKey.h"

#include "auth/users/UserEntry.h"
#include "tools/qbctl/HostArgument.h"
#include "tools/qbctl/KeyArgument.h"

namespace quorbel {

namespace {

ExitCode FailNoUser(const CArguments& arguments) {
    return Fail(L"There is no such user: " + arguments.Operands()[0]);
}

CResult<std::vector<std::wstring>> Hosts(const IKey& root) {
    const auto key = root.Open(kHostsKey, KeyAccess::Read);
    if (key.Error() == ErrorCode::FileNotFound) return std::vector<std::wstring>();
    if (!key.IsOk()) return key.Error();
    return key.Value()->Subkeys();
}

/// The path of the named or only host's key; none after saying why.
std::optional<std::wstring> FindHost(const IKey& root, const CArguments& arguments) {
    const auto read = Hosts(root);
    if (!read.IsOk()) {
        Ignore(Fail(FullName(kHostsKey), read.Error()));
        return std::nullopt;
    }
    const std::vector<std::wstring>& hosts = read.Value();
    const std::wstring* typed = arguments.Value(L"--host");
    const auto isTyped = [&](const std::wstring& host) { return !typed || EqualNoCase(host, *typed); };
    const auto found = std::find_if(hosts.begin(), hosts.end(), isTyped);
    if (found == hosts.end()) {
        Ignore(Fail(typed ? L"There is no such host: " + *typed
                          : L"There is no host yet: add one with \"qbctl host add\"."));
        return std::nullopt;
    }
    if (!typed && hosts.size() > 1) {
        std::wstring reason = L"There are several hosts: name one with --host:";
        for (const std::wstring& host : hosts) reason += L' ' + host;
        Ignore(Fail(reason));
        return std::nullopt;
    }
    return std::wstring(kHostsKey) + L'\\' + *found;
}

}  // namespace

ExitCode ReadUsers(const CArguments& arguments, const std::function<ExitCode(const IKey& users)>& work) {
    return WithRegistry([&](IRegistry& registry) {
        const auto moment = registry.BeginRead();
        if (!moment.IsOk()) return Fail(L"The registry cannot be read", moment.Error());
        const auto root = registry.LocalMachine();
        const auto host = FindHost(*root, arguments);
        if (!host) return ExitCode::Failure;
        const auto users = root->Open(*host + L'\\' + std::wstring(kUsersKey), KeyAccess::Read);
        if (users.Error() == ErrorCode::FileNotFound) return ExitCode::Success;
        return users.IsOk() ? work(*users.Value()) : Fail(*host, users.Error());
    });
}

ExitCode ChangeUsers(const CArguments& arguments, const std::function<ExitCode(IKey& users)>& work) {
    return WithTransaction([&](IKey& root) {
        const auto host = FindHost(root, arguments);
        if (!host) return ExitCode::Failure;
        const auto users = root.Create(*host + L'\\' + std::wstring(kUsersKey));
        return users.IsOk() ? work(*users.Value()) : Fail(*host, users.Error());
    });
}

ExitCode ReadUser(const CArguments& arguments, const std::function<ExitCode(const IKey& user)>& work) {
    bool isFound = false;
    const ExitCode code = ReadUsers(arguments, [&](const IKey& users) {
        const auto user = users.Open(arguments.Operands()[0], KeyAccess::Read);
        if (user.Error() == ErrorCode::FileNotFound) return ExitCode::Success;
        isFound = true;
        return user.IsOk() ? work(*user.Value()) : Fail(arguments.Operands()[0], user.Error());
    });
    return code == ExitCode::Success && !isFound ? FailNoUser(arguments) : code;
}

ExitCode ChangeUser(const CArguments& arguments, const std::function<ExitCode(IKey& user)>& work) {
    return ChangeUsers(arguments, [&](IKey& users) {
        const auto user = users.Open(arguments.Operands()[0], KeyAccess::ReadWrite);
        if (user.Error() == ErrorCode::FileNotFound) return FailNoUser(arguments);
        return user.IsOk() ? work(*user.Value()) : Fail(arguments.Operands()[0], user.Error());
    });
}

ExitCode CheckUserName(const std::wstring& name, std::wstring_view command) {
    if (!name.empty() && name.find(L'\\') == name.npos) return ExitCode::Success;
    return FailUsage(L"This is no user's name: " + name, command);
}

}  // namespace quorbel
