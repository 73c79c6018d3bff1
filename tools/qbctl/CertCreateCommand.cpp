#include <filesystem>

#include "components/certificates/CertificateInfo.h"
#include "components/certificates/SelfSignedCertificate.h"
#include "platform/File.h"
#include "platform/Root.h"
#include "platform/Text.h"
#include "tools/qbctl/CertCommand.h"
#include "tools/qbctl/Commands.h"

namespace quorbel {

namespace {

constexpr int kDefaultDays = 365;
constexpr int kMostDays = 3650;

constexpr std::wstring_view kCommand = L"qbctl cert create";

/// The name for a certificate that a host as typed stands for: an IPv6 address without its brackets.
std::string ToCertificateName(const std::wstring& host) {
    const bool isBracketed = host.starts_with(L'[');
    return ToUtf8(isBracketed ? host.substr(1, host.size() - 2) : host);
}

/// A DNS name, with "*" as its first label at most, or an address.
bool IsCertificateName(const std::wstring& typed) {
    const std::wstring_view plain = std::wstring_view(typed).substr(typed.starts_with(L"*.") ? 2 : 0);
    if (plain == L"*" || plain == L"+" || !IsHostName(plain)) return false;
    return !plain.starts_with(L'[') || (plain == typed && IsIpAddress(ToCertificateName(typed)));
}

/// The names that the certificate is for; none, and what is wrong, when one of them cannot be.
std::optional<std::vector<std::string>> NamesFor(const std::wstring& host, std::vector<std::wstring> further,
                                                 std::wstring& reason) {
    const bool isAnyHost = host == L"*" || host == L"+";
    if (!isAnyHost) further.insert(further.begin(), host);
    if (further.empty()) reason = L"Give the names of the certificate with --name.";
    std::vector<std::string> names;
    for (const std::wstring& name : further) {
        if (!IsCertificateName(name)) reason = L"This is no name for a certificate: " + name;
        names.push_back(ToCertificateName(FoldCase(name)));
    }
    return reason.empty() ? std::optional(std::move(names)) : std::nullopt;
}

/// The host as a file's name.
std::wstring ToFileName(const std::wstring& host) {
    if (host == L"*" || host == L"+") return L"any";
    std::wstring name = FromUtf8(ToCertificateName(host));
    std::replace(name.begin(), name.end(), L':', L'_');
    return name;
}

/// The folder as an absolute path.
CResult<std::filesystem::path> FolderFor(const std::wstring* typed) {
    if (!typed) return OpenCertificatesFolder();
    std::error_code failure;
    const auto folder = std::filesystem::canonical(ToUtf8(*typed), failure);
    if (failure) return ErrorFromErrno(failure.value());
    return folder;
}

/// The two files of a new certificate, which go again unless they are kept.
class CNewFiles {
 public:
    ~CNewFiles() {
        std::error_code ignored;
        for (const std::wstring& path : m_created) std::filesystem::remove(ToUtf8(path), ignored);
    }
    ExitCode Create(const std::wstring& path, const std::string& content, FileReaders readers) {
        const ErrorCode error = CreateNewFile(path, content, readers);
        if (error == ErrorCode::AlreadyExists) return Fail(L"The file is there already: " + path);
        if (error != ErrorCode::Success) return Fail(path, error);
        m_created.push_back(path);
        return ExitCode::Success;
    }
    void Keep() { m_created.clear(); }

 private:
    std::vector<std::wstring> m_created;
};

void SayWhatIsNext(const CHostArgument& target, const CCertificateFiles& files) {
    if (!target.port) {
        PrintLine(L"Bind it with: qbctl cert bind " + target.host + L":443 --certificate " +
                  files.certificate + L" --key " + files.privateKey);
    }
    PrintLine(L"It is self-signed: clients trust it once they have imported " + files.certificate);
}

ExitCode Store(const CHostArgument& target, const CCertificateFiles& files, const CPemPair& pair) {
    CNewFiles created;
    ExitCode code = created.Create(files.privateKey, pair.privateKey, FileReaders::Owner);
    if (code == ExitCode::Success)
        code = created.Create(files.certificate, pair.certificate, FileReaders::Everyone);
    if (code != ExitCode::Success) return code;
    if (target.port) code = BindCertificate(target, files);
    if (code != ExitCode::Success) return code;
    created.Keep();
    PrintLine(L"Created " + files.certificate + L" and " + files.privateKey);
    SayWhatIsNext(target, files);
    return code;
}

}  // namespace

ExitCode CertCreate(const CArguments& arguments) {
    const std::wstring& typed = arguments.Operands()[0];
    const auto target = ParseHostAndPort(typed);
    if (!target) return FailUsage(L"This is no HOST or HOST:PORT: " + typed, kCommand);
    const std::wstring* typedDays = arguments.Value(L"--days");
    const auto days = typedDays ? ParseNumber(*typedDays, 1, kMostDays) : kDefaultDays;
    if (!days) return FailUsage(L"This is no number of days from 1 to 3650: " + *typedDays, kCommand);
    std::wstring reason;
    const auto names = NamesFor(target->host, arguments.Values(L"--name"), reason);
    if (!names) return FailUsage(reason, kCommand);

    const std::wstring* out = arguments.Value(L"--out");
    const auto folder = FolderFor(out);
    if (!folder.IsOk()) return Fail(out ? *out : L"The folder for certificates", folder.Error());
    const auto pair = CreateSelfSignedCertificate(*names, *days, reason);
    if (!pair) return Fail(L"The certificate cannot be made: " + reason);
    const std::wstring stem = FromUtf8(folder.Value().string()) + L'/' + ToFileName(target->host);
    return Store(*target, {stem + L".crt", stem + L".key"}, *pair);
}

}  // namespace quorbel
