#pragma once

#include <string>
#include <string_view>

#include "platform/registry/Key.h"

namespace quorbel {

/// The key below HKEY_LOCAL_MACHINE that holds a subkey <host>:<port> for each host with a certificate, and
/// the text values that name its PEM files by absolute paths. An IPv6 address stands in brackets.
inline constexpr std::wstring_view kCertificateBindingsKey =
    L"SYSTEM\\CurrentControlSet\\Services\\HTTP\\Parameters\\SslBindingInfo";
inline constexpr std::wstring_view kCertificateFileValue = L"CertificateFile";
inline constexpr std::wstring_view kPrivateKeyFileValue = L"PrivateKeyFile";

/// The files that a binding names.
struct CCertificateFiles {
    std::wstring certificate;
    std::wstring privateKey;
    bool operator==(const CCertificateFiles&) const = default;
};

/// Reads the binding of that name, <host>:<port>, with references to environment variables replaced.
/// FileNotFound when there is none, BadPathname when its values name no files; other errors are the
/// registry's and may pass. `reason` says it in a sentence.
CResult<CCertificateFiles> ReadCertificateBinding(const IKey& localMachine, const std::wstring& name,
                                                  std::wstring& reason);

}  // namespace quorbel
