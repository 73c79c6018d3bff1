#include "tools/qbctl/CertCommand.h"

#include <filesystem>
#include <nlohmann/json.hpp>

#include "components/certificates/CertificateInfo.h"
#include "components/certificates/TlsCertificate.h"
#include "platform/Text.h"
#include "tools/qbctl/Commands.h"
#include "tools/qbctl/KeyArgument.h"

namespace quorbel {

namespace {

std::wstring BindingKey(const std::wstring& name) {
    return std::wstring(kCertificateBindingsKey) + L'\\' + name;
}

/// The absolute form of a path as typed.
std::optional<std::wstring> ToAbsolute(const std::wstring& typed) {
    std::error_code failure;
    const auto path = std::filesystem::absolute(ToUtf8(typed), failure);
    return failure || typed.empty() ? std::nullopt : FromUtf8Strict(path.lexically_normal().string());
}

/// Says something on standard error that keeps nothing from going on.
void Warn(const std::wstring& text) {
    Ignore(Fail(L"warning: " + text));
}

bool MayOthersRead(const std::wstring& path) {
    std::error_code ignored;
    const auto mode = std::filesystem::status(ToUtf8(path), ignored).permissions();
    return !ignored && (mode & std::filesystem::perms::others_read) != std::filesystem::perms::none;
}

ExitCode WriteBinding(IKey& root, const std::wstring& name, const CCertificateFiles& files) {
    const auto key = root.Create(BindingKey(name));
    if (!key.IsOk()) return Fail(name, key.Error());
    for (const auto& [value, path] : {std::pair(kCertificateFileValue, files.certificate),
                                      std::pair(kPrivateKeyFileValue, files.privateKey)}) {
        const ErrorCode error = key.Value()->Set(value, CValue::FromText(path));
        if (error != ErrorCode::Success) return Fail(name, error);
    }
    return ExitCode::Success;
}

/// What `cert list` shows of a binding.
struct CShownBinding {
    std::wstring name;
    CCertificateFiles files;
    CCertificateInfo info;
    std::wstring problem;
};

CShownBinding ExamineBinding(const IKey& localMachine, const std::wstring& name) {
    CShownBinding shown{name, {}, {}, {}};
    const auto files = ReadCertificateBinding(localMachine, name, shown.problem);
    if (!files.IsOk()) return shown;
    shown.files = files.Value();
    const auto loaded =
        CTlsCertificate::Load(ToUtf8(shown.files.certificate), ToUtf8(shown.files.privateKey), shown.problem);
    if (!loaded) return shown;
    shown.info = DescribeCertificate(loaded->Leaf());
    shown.problem = CertificateWarning(loaded->Leaf(), name.substr(0, name.rfind(L':')));
    return shown;
}

nlohmann::ordered_json TextOrNull(const std::wstring& text) {
    return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(ToUtf8(text));
}

void ShowJson(const CShownBinding& shown) {
    nlohmann::ordered_json object{{"name", ToUtf8(shown.name)},
                                  {"subject", TextOrNull(shown.info.subject)},
                                  {"names", nlohmann::ordered_json::array()},
                                  {"validFrom", TextOrNull(shown.info.validFrom)},
                                  {"validUntil", TextOrNull(shown.info.validUntil)},
                                  {"certificateFile", TextOrNull(shown.files.certificate)},
                                  {"privateKeyFile", TextOrNull(shown.files.privateKey)},
                                  {"problem", TextOrNull(shown.problem)}};
    for (const std::wstring& name : shown.info.names) object["names"].push_back(ToUtf8(name));
    // A name in a certificate may hold any bytes.
    PrintData(object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void ShowText(const CShownBinding& shown) {
    const auto orNone = [](const std::wstring& text) { return text.empty() ? L"-" : text; };
    std::wstring names;
    for (const std::wstring& name : shown.info.names) names += (names.empty() ? L"" : L",") + name;
    PrintLine(shown.name + L"  subject=" + orNone(shown.info.subject) + L"  names=" + orNone(names) +
              L"  until=" + orNone(shown.info.validUntil) + L"  certificate=" +
              orNone(shown.files.certificate) + L"  key=" + orNone(shown.files.privateKey) + L"  problem=" +
              orNone(shown.problem));
}

}  // namespace

std::wstring CertificateWarning(X509* certificate, const std::wstring& host) {
    const CCertificateInfo info = DescribeCertificate(certificate);
    if (!info.isValidNow)
        return L"The certificate is valid from " + info.validFrom + L" to " + info.validUntil + L" only.";
    if (host == L"*" || host == L"+") return {};
    const bool isBracketed = host.starts_with(L'[') && host.ends_with(L']');
    const std::wstring name = isBracketed ? host.substr(1, host.size() - 2) : host;
    if (IsCertificateFor(certificate, ToUtf8(name))) return {};
    return L"The certificate does not name " + name + L".";
}

ExitCode BindCertificate(const CHostArgument& target, const CCertificateFiles& files) {
    std::wstring reason;
    const auto loaded = CTlsCertificate::Load(ToUtf8(files.certificate), ToUtf8(files.privateKey), reason);
    if (!loaded) return Fail(reason);
    const std::wstring name = target.Name();
    const ExitCode code = WithTransaction([&](IKey& root) { return WriteBinding(root, name, files); });
    if (code != ExitCode::Success) return code;
    if (const auto warning = CertificateWarning(loaded->Leaf(), target.host); !warning.empty()) Warn(warning);
    if (MayOthersRead(files.privateKey))
        Warn(L"Everybody may read the private key: chmod o-r " + files.privateKey);
    PrintLine(L"Bound to " + name + L": " + files.certificate);
    return ExitCode::Success;
}

ExitCode CertBind(const CArguments& arguments) {
    const std::wstring& typed = arguments.Operands()[0];
    const auto target = ParseHostAndPort(typed);
    if (!target || !target->port) return FailUsage(L"This is no HOST:PORT: " + typed, L"qbctl cert bind");
    CCertificateFiles files;
    for (const auto& [option, path] :
         {std::pair(L"--certificate", &files.certificate), std::pair(L"--key", &files.privateKey)}) {
        const std::wstring* value = arguments.Value(option);
        if (!value) return FailUsage(std::wstring(option) + L" FILE is missing.", L"qbctl cert bind");
        auto absolute = ToAbsolute(*value);
        if (!absolute) return Fail(L"This is no path: " + *value);
        *path = *std::move(absolute);
    }
    return BindCertificate(*target, files);
}

ExitCode CertList(const CArguments& arguments) {
    return WithRegistry([&](IRegistry& registry) {
        const auto localMachine = registry.LocalMachine();
        const auto bindings = localMachine->Open(kCertificateBindingsKey, KeyAccess::Read);
        if (bindings.Error() == ErrorCode::FileNotFound) return ExitCode::Success;
        if (!bindings.IsOk()) return Fail(FullName(kCertificateBindingsKey), bindings.Error());
        const auto names = bindings.Value()->Subkeys();
        if (!names.IsOk()) return Fail(FullName(kCertificateBindingsKey), names.Error());
        for (const std::wstring& name : names.Value()) {
            const CShownBinding shown = ExamineBinding(*localMachine, name);
            if (arguments.Has(L"--json")) {
                ShowJson(shown);
            } else {
                ShowText(shown);
            }
        }
        return ExitCode::Success;
    });
}

ExitCode CertRemove(const CArguments& arguments) {
    const std::wstring& name = arguments.Operands()[0];
    // Whatever got there by other ways can be removed.
    if (name.empty() || name.find(L'\\') != name.npos)
        return FailUsage(L"This is no HOST:PORT: " + name, L"qbctl cert remove");
    const ExitCode code = WithTransaction([&](IKey& root) {
        const ErrorCode error = root.DeleteTree(BindingKey(name));
        if (error == ErrorCode::FileNotFound) return Fail(L"No certificate is bound to " + name + L".");
        return error == ErrorCode::Success ? ExitCode::Success : Fail(name, error);
    });
    if (code == ExitCode::Success) PrintLine(L"Unbound: " + name + L". Its files stay.");
    return code;
}

}  // namespace quorbel
