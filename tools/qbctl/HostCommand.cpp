#include <nlohmann/json.hpp>

#include "auth/users/UserEntry.h"
#include "platform/Text.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/HostArgument.h"
#include "tools/qbctl/KeyArgument.h"

namespace quorbel {

namespace {

/// What is shown of a host and can be given for a new one.
struct CHostValue {
    std::wstring_view option;
    std::wstring_view name;  ///< in the registry
    const char* member;      ///< in JSON
};
constexpr std::array kHostValues{
    CHostValue{L"--protocol", L"Protocol", "protocol"},
    CHostValue{L"--port", L"Port", "port"},
    CHostValue{L"--application", L"Application", "application"},
    CHostValue{L"--anon-root", L"Anon Root", "anonRoot"},
    CHostValue{L"--user-root", L"User Root", "userRoot"},
    CHostValue{L"--admin-root", L"Admin Root", "adminRoot"},
};

/// The value as the service reads it: a text, or a number in decimal. None when there is no such value.
std::optional<std::wstring> ReadValue(const IKey& host, std::wstring_view name) {
    const CResult<CValue> value = host.Query(name);
    if (!value.IsOk()) return std::nullopt;
    const ValueType type = value.Value().type;
    if (type == ValueType::Text || type == ValueType::ExpandableText) return value.Value().AsText();
    const auto number = value.Value().AsNumber32();
    if (type != ValueType::Number32 || !number) return std::nullopt;
    return std::to_wstring(*number);
}

void ShowJson(const std::wstring& name, const IKey& host) {
    nlohmann::ordered_json object{{"name", ToUtf8(name)}};
    for (const CHostValue& shown : kHostValues) {
        const auto value = ReadValue(host, shown.name);
        object[shown.member] = value ? nlohmann::ordered_json(ToUtf8(*value)) : nlohmann::ordered_json();
    }
    PrintData(object.dump());
}

void ShowText(const std::wstring& name, const IKey& host) {
    std::wstring line = name;
    for (const CHostValue& shown : kHostValues) {
        line +=
            L"  " + std::wstring(shown.option.substr(2)) + L"=" + ReadValue(host, shown.name).value_or(L"-");
    }
    PrintLine(line);
}

/// What is wrong with the options, if anything.
std::optional<std::wstring> CheckOptions(const CArguments& arguments) {
    if (const std::wstring* port = arguments.Value(L"--port")) {
        if (!ParseNumber(*port, 1, 65535)) return L"This is no port: " + *port;
    }
    const std::wstring* protocol = arguments.Value(L"--protocol");
    if (protocol && *protocol != L"http" && *protocol != L"https")
        return L"This is no protocol: " + *protocol;
    return std::nullopt;
}

ExitCode AddHost(IKey& root, const std::wstring& name, const CArguments& arguments) {
    const auto hosts = root.Create(kHostsKey);
    if (!hosts.IsOk()) return Fail(FullName(kHostsKey), hosts.Error());
    if (hosts.Value()->Open(name, KeyAccess::Read).IsOk())
        return Fail(L"There is such a host already: " + name);
    const auto host = hosts.Value()->Create(name);
    if (!host.IsOk()) return Fail(name, host.Error());
    for (const CHostValue& known : kHostValues) {
        const std::wstring* value = arguments.Value(known.option);
        if (!value) continue;
        const ErrorCode error = host.Value()->Set(known.name, CValue::FromText(*value));
        if (error != ErrorCode::Success) return Fail(known.name, error);
    }
    const auto users = host.Value()->Create(kUsersKey);
    if (!users.IsOk()) return Fail(kUsersKey, users.Error());
    return ExitCode::Success;
}

}  // namespace

ExitCode HostList(const CArguments& arguments) {
    return WithRegistry([&](IRegistry& registry) {
        const auto hosts = registry.LocalMachine()->Open(kHostsKey, KeyAccess::Read);
        if (hosts.Error() == ErrorCode::FileNotFound) return ExitCode::Success;
        if (!hosts.IsOk()) return Fail(FullName(kHostsKey), hosts.Error());
        const auto names = hosts.Value()->Subkeys();
        if (!names.IsOk()) return Fail(FullName(kHostsKey), names.Error());
        for (const std::wstring& name : names.Value()) {
            const auto host = hosts.Value()->Open(name, KeyAccess::Read);
            // It may have been removed meanwhile.
            if (host.Error() == ErrorCode::FileNotFound) continue;
            if (!host.IsOk()) return Fail(name, host.Error());
            if (arguments.Has(L"--json")) {
                ShowJson(name, *host.Value());
            } else {
                ShowText(name, *host.Value());
            }
        }
        return ExitCode::Success;
    });
}

ExitCode HostAdd(const CArguments& arguments) {
    const std::wstring& name = arguments.Operands()[0];
    if (!IsHostName(name)) return FailUsage(L"This is no host name: " + name, L"qbctl host add");
    if (const auto reason = CheckOptions(arguments)) return FailUsage(*reason, L"qbctl host add");
    return WithTransaction([&](IKey& root) { return AddHost(root, name, arguments); });
}

ExitCode HostRemove(const CArguments& arguments) {
    const std::wstring& name = arguments.Operands()[0];
    // Whatever got there by other ways can be removed.
    if (name.empty() || name.find(L'\\') != name.npos) {
        return FailUsage(L"This is no host name: " + name, L"qbctl host remove");
    }
    const bool forced = arguments.Has(L"/f") || arguments.Has(L"--force");
    if (!forced && !Confirm(L"Remove the host " + name + L" and everything below its key?", L"--force")) {
        return ExitCode::Failure;
    }
    return WithTransaction([&](IKey& root) {
        const ErrorCode error = root.DeleteTree(std::wstring(kHostsKey) + L'\\' + name);
        if (error == ErrorCode::FileNotFound) return Fail(L"There is no such host: " + name);
        return error == ErrorCode::Success ? ExitCode::Success : Fail(name, error);
    });
}

}  // namespace quorbel
