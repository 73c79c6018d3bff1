#include "components/certificates/CertificateBinding.h"

#include "platform/Text.h"

namespace quorbel {

namespace {

/// The text of that value, or an empty one.
std::wstring TextOf(const std::vector<CNamedValue>& values, std::wstring_view name) {
    for (const CNamedValue& named : values) {
        if (!EqualNoCase(named.name, name)) continue;
        if (named.value.type == ValueType::Text) return named.value.AsText();
        if (named.value.type == ValueType::ExpandableText) return ExpandEnvironment(named.value.AsText());
    }
    return {};
}

}  // namespace

CResult<CCertificateFiles> ReadCertificateBinding(const IKey& localMachine, const std::wstring& name,
                                                  std::wstring& reason) {
    const auto key = localMachine.Open(std::wstring(kCertificateBindingsKey) + L'\\' + name, KeyAccess::Read);
    if (key.Error() == ErrorCode::FileNotFound) {
        reason = L"No certificate is bound to " + name + L". Bind one with: qbctl cert bind " + name +
                 L" --certificate FILE --key FILE";
        return key.Error();
    }
    const auto values = key.IsOk() ? key.Value()->Values() : key.Error();
    if (!values.IsOk()) {
        reason = L"The certificate bound to " + name + L" cannot be looked up: " +
                 SystemMessage(ToNumber(values.Error())).value_or(L"the registry failed.");
        return values.Error();
    }
    const CCertificateFiles files{TextOf(values.Value(), kCertificateFileValue),
                                  TextOf(values.Value(), kPrivateKeyFileValue)};
    if (files.certificate.starts_with(L'/') && files.privateKey.starts_with(L'/')) return files;
    reason =
        L"The binding of " + name + L" names no file by an absolute path in the value \"" +
        std::wstring(files.certificate.starts_with(L'/') ? kPrivateKeyFileValue : kCertificateFileValue) +
        L"\".";
    return ErrorCode::BadPathname;
}

}  // namespace quorbel
