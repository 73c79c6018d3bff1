#include <nlohmann/json.hpp>

#include "auth/users/UserEntry.h"
#include "platform/Text.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/UserKey.h"

namespace quorbel {

namespace {

/// What `user list` shows of a user: the entry or what is wrong with it.
struct CShownUser {
    std::wstring name;
    std::optional<CUserEntry> entry;
    std::wstring problem;
};

std::wstring ErrorText(ErrorCode error) {
    return SystemMessage(ToNumber(error)).value_or(L"Error " + std::to_wstring(ToNumber(error)) + L".");
}

CShownUser ExamineUser(const IKey& users, const std::wstring& name) {
    CShownUser shown{name, std::nullopt, {}};
    const auto user = users.Open(name, KeyAccess::Read);
    std::wstring culprit;
    const auto entry = user.IsOk() ? ReadUserEntry(*user.Value(), culprit) : user.Error();
    if (entry.IsOk()) {
        shown.entry = entry.Value();
    } else {
        shown.problem = (culprit.empty() ? name : culprit) + L": " + ErrorText(entry.Error());
    }
    return shown;
}

const char* FormName(PasswordForm form) {
    switch (form) {
        case PasswordForm::None: return "none";
        case PasswordForm::Plain: return "plain";
        case PasswordForm::Hashed: return "hashed";
    }
    return "none";
}

void ShowJson(const CShownUser& shown) {
    nlohmann::ordered_json object{{"name", ToUtf8(shown.name)}};
    for (const char* member : {"displayName", "administrator", "password", "passkeys", "staysSignedIn"})
        object[member] = nullptr;
    if (shown.entry) {
        object["displayName"] = ToUtf8(shown.entry->displayName);
        object["administrator"] = shown.entry->isAdministrator;
        object["password"] = FormName(shown.entry->password.Form());
        object["passkeys"] = shown.entry->credentials.size();
        object["staysSignedIn"] = !shown.entry->cookieText.empty();
    }
    object["problem"] =
        shown.entry ? nlohmann::ordered_json() : nlohmann::ordered_json(ToUtf8(shown.problem));
    PrintData(object.dump());
}

void ShowText(const CShownUser& shown) {
    if (!shown.entry) return PrintLine(shown.name + L"  problem=" + shown.problem);
    const CUserEntry& entry = *shown.entry;
    const auto yesOrNo = [](bool is) { return is ? L"yes" : L"no"; };
    PrintLine(shown.name + L"  display-name=" + (entry.displayName.empty() ? L"-" : entry.displayName) +
              L"  admin=" + yesOrNo(entry.isAdministrator) + L"  password=" +
              FromUtf8(FormName(entry.password.Form())) + L"  passkeys=" +
              std::to_wstring(entry.credentials.size()) + L"  stays-signed-in=" +
              yesOrNo(!entry.cookieText.empty()));
}

}  // namespace

ExitCode UserList(const CArguments& arguments) {
    return ReadUsers(arguments, [&](const IKey& users) {
        const auto names = users.Subkeys();
        if (!names.IsOk()) return Fail(kUsersKey, names.Error());
        bool areAllWhole = true;
        for (const std::wstring& name : names.Value()) {
            const CShownUser shown = ExamineUser(users, name);
            areAllWhole = areAllWhole && shown.entry;
            if (arguments.Has(L"--json")) {
                ShowJson(shown);
            } else {
                ShowText(shown);
            }
        }
        if (!areAllWhole) {
            Ignore(
                Fail(L"warning: With such an entry the service does not start. A running service follows the "
                     L"users no longer: mend the entry, then start it anew."));
        }
        return ExitCode::Success;
    });
}

}  // namespace quorbel
