#include "auth/users/Argon2.h"
#include "auth/users/UserEntry.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/PasswordPrompt.h"
#include "tools/qbctl/UserKey.h"

namespace quorbel {

namespace {

constexpr std::wstring_view kSessionsEndLater = L"Sessions that are running end by their timeout.";

const std::wstring& NameOf(const CArguments& arguments) {
    return arguments.Operands()[0];
}

/// Asks for a password and hashes it, which takes a moment: outside of any transaction.
std::optional<CPassword> MakeNewPassword() {
    const auto plain = AskForNewPassword();
    if (!plain) return std::nullopt;
    CArgon2 argon2;
    CPassword password(plain->Get());
    const ErrorCode error = password.SetPassword(argon2);
    if (error == ErrorCode::Success) return password;
    Ignore(Fail(L"The password cannot be hashed", error));
    return std::nullopt;
}

ExitCode ToExitCode(std::wstring_view what, ErrorCode error) {
    return error == ErrorCode::Success ? ExitCode::Success : Fail(what, error);
}

ExitCode SetAdministrator(IKey& user, bool isAdministrator) {
    return ToExitCode(kAdministratorValue,
                      user.Set(kAdministratorValue, CValue::FromNumber32(isAdministrator ? 1 : 0)));
}

/// Without its stored token nobody stays signed in as this user over a restart or a reload.
ExitCode DeleteCookie(IKey& user) {
    const ErrorCode error = user.DeleteValue(kCookieValue);
    return error == ErrorCode::FileNotFound ? ExitCode::Success : ToExitCode(kCookieValue, error);
}

/// Fails for a name that is taken or that no user can have.
ExitCode CheckIsFree(const IKey& users, const std::wstring& name) {
    const ErrorCode error = users.Open(name, KeyAccess::Read).Error();
    if (error == ErrorCode::Success) return Fail(L"There is such a user already: " + name);
    return error == ErrorCode::FileNotFound ? ExitCode::Success : Fail(name, error);
}

ExitCode AddUser(IKey& users, const CArguments& arguments, const CPassword& password) {
    ExitCode code = CheckIsFree(users, NameOf(arguments));
    if (code != ExitCode::Success) return code;
    const auto user = users.Create(NameOf(arguments));
    if (!user.IsOk()) return Fail(NameOf(arguments), user.Error());
    if (const std::wstring* shown = arguments.Value(L"--display-name")) {
        code = ToExitCode(kDisplayNameValue, user.Value()->Set(kDisplayNameValue, CValue::FromText(*shown)));
    }
    if (code == ExitCode::Success && arguments.Has(L"--admin")) code = SetAdministrator(*user.Value(), true);
    if (code != ExitCode::Success) return code;
    return ToExitCode(kPasswordValue, password.Write(*user.Value()));
}

}  // namespace

ExitCode UserAdd(const CArguments& arguments) {
    ExitCode code = CheckUserName(NameOf(arguments), L"qbctl user add");
    if (code != ExitCode::Success) return code;
    // Nobody is asked for a password in vain.
    code = ReadUsers(arguments, [&](const IKey& users) { return CheckIsFree(users, NameOf(arguments)); });
    if (code != ExitCode::Success) return code;
    const auto password = MakeNewPassword();
    if (!password) return ExitCode::Failure;
    return ChangeUsers(arguments, [&](IKey& users) { return AddUser(users, arguments, *password); });
}

ExitCode UserRemove(const CArguments& arguments) {
    const std::wstring& name = NameOf(arguments);
    const ExitCode code = CheckUserName(name, L"qbctl user remove");
    if (code != ExitCode::Success) return code;
    const bool isForced = arguments.Has(L"/f") || arguments.Has(L"--force");
    if (!isForced && !Confirm(L"Remove the user " + name + L" with all passkeys?", L"--force"))
        return ExitCode::Failure;
    return ChangeUsers(arguments, [&](IKey& users) {
        const ErrorCode error = users.DeleteTree(name);
        if (error == ErrorCode::FileNotFound) return Fail(L"There is no such user: " + name);
        return ToExitCode(name, error);
    });
}

ExitCode UserPasswd(const CArguments& arguments) {
    ExitCode code = CheckUserName(NameOf(arguments), L"qbctl user passwd");
    if (code != ExitCode::Success) return code;
    code = ReadUser(arguments, [](const IKey&) { return ExitCode::Success; });
    if (code != ExitCode::Success) return code;
    const auto password = MakeNewPassword();
    if (!password) return ExitCode::Failure;
    code = ChangeUser(arguments, [&](IKey& user) {
        const ExitCode written = ToExitCode(kPasswordValue, password->Write(user));
        return written == ExitCode::Success ? DeleteCookie(user) : written;
    });
    if (code == ExitCode::Success) PrintLine(kSessionsEndLater);
    return code;
}

ExitCode UserSignOut(const CArguments& arguments) {
    ExitCode code = CheckUserName(NameOf(arguments), L"qbctl user sign-out");
    if (code == ExitCode::Success) code = ChangeUser(arguments, DeleteCookie);
    if (code == ExitCode::Success) PrintLine(kSessionsEndLater);
    return code;
}

ExitCode UserAdmin(const CArguments& arguments) {
    constexpr std::wstring_view kCommand = L"qbctl user admin";
    const bool isOn = arguments.Has(L"--on");
    if (isOn == arguments.Has(L"--off")) return FailUsage(L"Give either --on or --off.", kCommand);
    ExitCode code = CheckUserName(NameOf(arguments), kCommand);
    if (code == ExitCode::Success)
        code = ChangeUser(arguments, [&](IKey& user) { return SetAdministrator(user, isOn); });
    if (code == ExitCode::Success) PrintLine(L"Sessions that are running keep the rights that they have.");
    return code;
}

}  // namespace quorbel
